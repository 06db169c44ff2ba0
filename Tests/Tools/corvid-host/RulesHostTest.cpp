// `corvid-host rules` in a process of its own: what a sender gets from each fault, in which time,
// and that the next message is answered as if nothing had been.

#include "Platform/Unix/MessageFrame.h"
#include "Platform/Unix/PortFolder.h"
#include "Tests/HostKit/ExtensionDouble.h"
#include "Tests/HostKit/HostProcess.h"
#include "Tests/HostKit/RuntimeFolderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>

namespace corvid {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class RulesHostTest : public RuntimeFolderFixture {
protected:
    std::string file(const std::string& name, const std::string& text) const {
        const std::string path = (top_ / name).string();
        std::ofstream(path) << text;
        return path;
    }

    void start(const std::string& rules) {
        record_ = (top_ / "record").string();
        host_ = std::make_unique<HostProcess>(
            std::vector<std::string>{CORVID_BIN_DIR "/corvid-host", "rules", file("rules", rules),
                                     volume_, "--record", record_});
        ASSERT_THAT(host_->waitForLine("by rules"), HasSubstr(volume_));
    }

    struct Outcome {
        std::string badge;
        SendStatus status;
        milliseconds time;
    };
    Outcome ask(const std::string& item) {
        const auto start = std::chrono::steady_clock::now();
        const std::string badge = extension_.badge(item);
        return {badge, extension_.status(),
                std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start)};
    }

    std::vector<nlohmann::json> recorded() const {
        std::vector<nlohmann::json> lines;
        std::ifstream in(record_);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(nlohmann::json::parse(line));
        }
        return lines;
    }

    std::string record_;
    std::unique_ptr<HostProcess> host_;
    ExtensionDouble extension_{"test"};
};

TEST_F(RulesHostTest, badgesMenusAndClicks) {
    start("badge *.txt synced\n"
          "menu *.txt \"Share\" > \"By Mail\" mail\n"
          "menu ** \"Nothing\" disabled\n"
          "on mail finishedTransfer\n");
    extension_.registerPort();
    EXPECT_EQ(ask("/a.txt").badge, "synced");
    EXPECT_EQ(ask("/a.png").badge, "none");
    const auto menu = extension_.menu({"/a.txt"});
    ASSERT_TRUE(menu && menu->size() == 2);
    EXPECT_FALSE((*menu)[1]->isEnabled);
    extension_.click((*menu)[0]->submenu->items[0], {"/a.txt"});
    extension_.waitForPush("/a.txt", "finishedTransfer");
    EXPECT_EQ(ask("/a.txt").badge, "finishedTransfer");

    const auto lines = recorded();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[0]["message"], "updatePortIDs");
    EXPECT_EQ(lines[0]["payload"]["register"], true);
    EXPECT_EQ(lines[1]["payload"]["url"]["$url"], "file:///Volumes/Corvid/a.txt");
    EXPECT_EQ(lines[3]["payload"]["operatingOnParent"], false);
    EXPECT_EQ(lines[4]["payload"]["action"]["action"], "mail");
}

TEST_F(RulesHostTest, everyFaultIsSeenInTimeAndTheNextMessageIsAnswered) {
    start("badge ** synced\n"
          "fault badge delayed delay 300ms\n"
          "fault badge late delay 30s\n"
          "fault badge hung hang\n"
          "fault badge mute no-reply\n"
          "fault badge garbage garbage\n"
          "fault badge oversize oversize\n"
          "fault badge dripping drip 100ms\n");
    struct Row {
        const char* item;
        const char* badge;
        SendStatus status;
        milliseconds least;
    };
    const Row rows[] = {
        {"/delayed", "synced", SendStatus::success, milliseconds(300)},
        {"/late", "(no answer)", SendStatus::receiveTimeout, milliseconds(1000)},
        {"/hung", "(no answer)", SendStatus::receiveTimeout, milliseconds(1000)},
        {"/mute", "(no answer)", SendStatus::becameInvalid, milliseconds(0)},
        {"/garbage", "(no answer)", SendStatus::success, milliseconds(0)},
        {"/oversize", "(no answer)", SendStatus::transportError, milliseconds(0)},
        {"/dripping", "(no answer)", SendStatus::receiveTimeout, milliseconds(1000)},
    };
    for (const Row& row : rows) {
        const Outcome outcome = ask(row.item);
        EXPECT_EQ(outcome.badge, row.badge) << row.item;
        EXPECT_EQ(outcome.status, row.status) << row.item;
        EXPECT_GE(outcome.time, row.least) << row.item;
        EXPECT_LT(outcome.time, milliseconds(10000)) << row.item;
        EXPECT_EQ(ask("/fine").badge, "synced") << "after " << row.item;
    }
    host_->signal(SIGTERM);
    EXPECT_EQ(host_->wait(), 0) << "a fault that is under way must not hold up the end";
}

TEST_F(RulesHostTest, dripWithinTheDeadlineIsAnAnswer) {
    start("badge ** synced\nfault badge x drip 1ms\n");
    EXPECT_EQ(ask("/x").badge, "synced");
}

TEST_F(RulesHostTest, menuHasFaultsOfItsOwn) {
    start("badge ** synced\nmenu ** \"A\" a\nfault menu ** garbage\n");
    EXPECT_EQ(extension_.menu({"/x"}), std::nullopt);
    EXPECT_EQ(ask("/x").badge, "synced");
}

TEST_F(RulesHostTest, exitsAfterSoManyAnswers) {
    start("badge ** synced\nfault badge ** exit-after 2\n");
    EXPECT_EQ(ask("/a").badge, "synced");
    EXPECT_EQ(ask("/b").badge, "synced");
    EXPECT_EQ(ask("/c").badge, "(no answer)");
    EXPECT_EQ(host_->wait(), 3);
    EXPECT_EQ(ask("/d").status, SendStatus::isInvalid);
}

TEST_F(RulesHostTest, namesThatNobodyServesTakeNoThreads) {
    start("badge ** synced\n");
    std::thread reader([this] { host_->waitForLine("(never)"); });
    for (int i = 0; i < 3'000; ++i) {
        EXPECT_TRUE(extension_.registerPort("nobody " + std::to_string(i), true)) << i;
    }
    EXPECT_EQ(ask("/a").badge, "synced");
    const std::filesystem::directory_iterator threads("/proc/" + std::to_string(host_->process()) +
                                                      "/task");
    EXPECT_LT(std::distance(begin(threads), end(threads)), 30);
    host_->signal(SIGTERM);
    reader.join();
    EXPECT_EQ(host_->wait(), 0);
}

TEST_F(RulesHostTest, recordOfAMessageThatUnfoldsStaysSmall) {
    start("badge ** synced\n");
    // Forty lists, each of which holds the one before twice: 2^40 values in a small message.
    Value value = Value::string("innermost");
    for (int level = 0; level < 40; ++level) {
        value = Value::array({value, value});
    }
    const Bytes message = archivedData(Value::dictionary({{"url", value}}));
    EXPECT_LT(message.size(), 3'000U);
    extension_.sendBytes(4, message, true);
    const std::string text(200'000, 't');
    const Value shared = Value::string(text);
    extension_.sendBytes(4, archivedData(Value::array(std::vector<Value>(10'000, shared))), true);
    EXPECT_EQ(ask("/a").badge, "synced");
    const auto lines = recorded();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0]["unreadableBytes"], message.size());
    EXPECT_THAT(lines[0]["problem"].get<std::string>(), HasSubstr("unfolds into more than"));
    EXPECT_THAT(lines[1]["problem"].get<std::string>(), HasSubstr("unfolds into more than"));
    EXPECT_LT(std::filesystem::file_size(record_), 10'000U);
}

TEST_F(RulesHostTest, namesCannotActOnATerminal) {
    start("badge ** synced\nmenu ** \"\x1b[2JA\" act\n");
    const auto menu = extension_.menu({"/a"});
    ASSERT_TRUE(menu && menu->size() == 1);
    extension_.click(menu->front(), {"/a"});
    EXPECT_THAT(host_->waitForLine("on 1 items"), StartsWith("\\x1b[2JA"));
    const ExtensionDouble other("\x1b]0;title\a\u009b31m");
    EXPECT_THAT(host_->waitForLine("title"), HasSubstr("\\x1b]0;title\\x07\\u{9b}31m"));
}

TEST_F(RulesHostTest, faultIsOfItemsInTheVolume) {
    start("badge ** synced\nfault badge * no-reply\n");
    EXPECT_EQ(ask("/2/x").badge, ExtensionDouble::kNoAnswer);
    // "/Volumes/Corvid2/x" is elsewhere.
    const Value elsewhere = Value::url(URL::fileURL("/Volumes/Corvid2/x").value());
    const auto reply =
        extension_.sendBytes(4, archivedData(Value::dictionary({{"url", elsewhere}})), true);
    EXPECT_TRUE(reply.has_value());
}

TEST_F(RulesHostTest, faultsBeyondTheMostGetNoAnswer) {
    start("badge ** synced\nfault badge hung hang\n");
    std::vector<OwnedFd> hung;
    UnixMessagePortService ports;
    const auto payload = archivedData(
        Value::dictionary({{"url", Value::url(URL::fileURL("/Volumes/Corvid/hung").value())}}));
    FrameHeader header;
    header.kind = FrameKind::request;
    header.hasData = true;
    header.wantsReply = true;
    header.messageID = 4;
    header.dataBytes = static_cast<std::uint32_t>(payload.size());
    const auto start = encodedHeader(header);
    Bytes frame(start.begin(), start.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    for (int i = 0; i < 400; ++i) {
        auto connection = ports.portFolder().connect("com.corvid.desktop.widget",
                                                     Deadline(std::chrono::seconds(10)));
        ASSERT_TRUE(connection.fd) << i;
        ASSERT_EQ(send(connection.fd.get(), frame.data(), frame.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(frame.size()));
        hung.push_back(std::move(connection.fd));
    }
    EXPECT_EQ(ask("/a").badge, "synced");
    const std::filesystem::directory_iterator threads("/proc/" + std::to_string(host_->process()) +
                                                      "/task");
    EXPECT_LT(std::distance(begin(threads), end(threads)), 300);
    hung.clear();
    EXPECT_EQ(ask("/b").badge, "synced");
}

TEST_F(RulesHostTest, mistakeIsSaidWithItsPlaceAndNothingIsStarted) {
    const std::string rules = file("rules", "badge * synced\nbadge *.txt Synced\n");
    HostProcess host({CORVID_BIN_DIR "/corvid-host", "rules", rules, volume_, "--record",
                      (top_ / "record").string()});
    EXPECT_THAT(host.waitForLine("Synced"),
                StartsWith("corvid-host: " + rules + ":2:13: \"Synced\" is no badge; use one of"));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_FALSE(std::filesystem::exists(top_ / "record"));
    HostProcess missing({CORVID_BIN_DIR "/corvid-host", "rules", rules + "-not"});
    EXPECT_THAT(missing.waitForLine("corvid-host:"), HasSubstr("cannot be read"));
    EXPECT_EQ(missing.wait(), 1);
}

} // namespace
} // namespace corvid
