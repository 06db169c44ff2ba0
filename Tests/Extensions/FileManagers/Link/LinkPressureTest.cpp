// The extension's end of the link when the other end is slow, stopped, silent or floods it.

#include "Tests/Extensions/FileManagers/Link/LinkEnds.h"
#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace corvid::link {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kGreetingTime{1000};

/// What the program has taken from the heap and not given back; 0 where a sanitizer has the heap.
std::size_t heapBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

class LinkPressureTest : public ::testing::Test {
protected:
    /// A peer that has been greeted, under `program`'s name.
    std::unique_ptr<RawPeer> greeted(const std::string& program = "raw") {
        auto peer = std::make_unique<RawPeer>(folder_);
        peer->say(Hello{1, 1, program});
        peer->hear<Welcome>();
        return peer;
    }

    /// Returns when the extension, asked for its status again and again, fulfils `isDone`.
    static void untilStatus(FrontEnd& observer,
                            const std::function<bool(const StatusReply&)>& isDone) {
        std::uint32_t request = 0;
        observer.until([&] {
            if (request != 0 && (!observer.status || observer.status->request != request)) {
                return false;
            }
            if (request != 0 && isDone(*observer.status)) {
                return true;
            }
            observer.client.send(StatusRequest{++request});
            return false;
        });
    }

    static Ask names(const std::string& folder, int from, int count) {
        Ask ask;
        ask.folder = folder;
        for (int i = from; i < from + count; ++i) {
            ask.items.push_back({"an ordinary name, neither short nor very long, number " +
                                     std::to_string(i) + ".txt",
                                 false});
        }
        return ask;
    }

    TemporaryFolder scratch_;
    RuntimeFolder folder_{scratch_ / "corvid"};
    Script script_;
};

TEST_F(LinkPressureTest, AFrontEndThatReadsAgainGetsEveryAnswer) {
    constexpr int kNames = 12'000;
    Serving serving(folder_, script_, kGreetingTime);
    FrontEnd observer(folder_);
    observer.untilVolume();
    const auto peer = greeted();
    peer->say(Begin{"/v"});
    for (int from = 0; from < kNames; from += 4000) {
        peer->say(names("/v", from, 4000));
    }
    // The begin and all questions, whoever has read the answers.
    untilStatus(observer, [&](const StatusReply& status) {
        return status.waitingQuestions == 0 && script_.calls.lines().size() > kNames;
    });
    // The extension waits for the front end, and does nothing meanwhile.
    const auto before = serving.processorTime();
    RawPeer silent(folder_);
    EXPECT_TRUE(silent.isHungUpOn()) << "after a while, which passes this way";
    EXPECT_LT(serving.processorTime() - before, kGreetingTime / 4);

    int answers = 0;
    while (answers < kNames && !HasFailure()) {
        for (const ItemBadge& item : peer->hear<Badges>().items) {
            answers += item.isAnswer && item.badge == "synced" ? 1 : 0;
        }
    }
    EXPECT_EQ(answers, kNames);
    peer->say(Ping{1});
    EXPECT_EQ(peer->hear<Pong>().request, 1U);
}

TEST_F(LinkPressureTest, AWillingReaderGetsALargeMenu) {
    constexpr std::size_t kEntries = 19'000;
    for (std::size_t i = 0; i < kEntries; ++i) {
        auto item = std::make_shared<MenuItem>();
        item->title = "An entry with a title as long as titles are: " + std::to_string(i);
        script_.menu->items.push_back(item);
    }
    Serving serving(folder_, script_);
    const auto peer = greeted();
    peer->hear<Volume>();
    peer->say(MenuRequest{7, 0, 0, "/v", {{"/v/a", false}}});
    const auto reply = peer->hear<MenuReply>();
    EXPECT_EQ(reply.outcome, MenuOutcome::made);
    ASSERT_EQ(reply.entries.size(), kEntries);
    EXPECT_EQ(reply.entries.back().title, script_.menu->items.back()->title);
    peer->say(Click{8, reply.menu, kEntries - 1});
    EXPECT_EQ(peer->hear<ClickReply>().outcome, ClickOutcome::sent);
}

TEST_F(LinkPressureTest, SilentConnectionsKeepNobodyOut) {
    // They would have an hour to greet: here it is their number that makes room.
    Serving serving(folder_, script_, std::chrono::hours(1));
    const auto early = greeted("early");
    std::vector<std::unique_ptr<RawPeer>> silent;
    for (std::size_t i = 0; i < 2 * LinkServer::kMaxFrontEnds; ++i) {
        silent.push_back(std::make_unique<RawPeer>(folder_));
    }
    const auto late = greeted("late");
    early->say(Ping{1});
    EXPECT_EQ(early->hear<Pong>().request, 1U) << "who has greeted stays";
    // One place is that of the early one, one that of the late one.
    const std::size_t gone = LinkServer::kMaxFrontEnds + 2;
    for (std::size_t i = 0; i < gone; ++i) {
        EXPECT_TRUE(silent[i]->isHungUpOn()) << i;
    }
    EXPECT_FALSE(silent[gone]->hears(milliseconds(0)));
}

TEST_F(LinkPressureTest, ASilentConnectionIsHungUpOn) {
    Serving serving(folder_, script_, milliseconds(50));
    const auto first = greeted();
    RawPeer silent(folder_);
    EXPECT_TRUE(silent.isHungUpOn());
    // Half a greeting is none, and neither is a long one.
    RawPeer half(folder_);
    half.send({20, 0, 0, 0, 1});
    EXPECT_TRUE(half.isHungUpOn());
    first->say(Ping{1});
    EXPECT_EQ(first->hear<Pong>().request, 1U);
}

TEST_F(LinkPressureTest, BeforeTheGreetingNothingLongIsTakenIn) {
    Serving serving(folder_, script_, std::chrono::hours(1));
    RawPeer peer(folder_);
    const std::size_t length = kMaxGreetingSize + 1;
    peer.send({length & 0xFF, length >> 8, 0, 0, 1});
    EXPECT_TRUE(peer.isHungUpOn());
}

TEST_F(LinkPressureTest, RepliesToAFrontEndThatReadsNothingAreBounded) {
    Serving serving(folder_, script_);
    // Every front end is named in the status, so that a reply is 5,700 times its request.
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 200; ++i) {
        peers.push_back(greeted(std::string(kMaxNameSize, 'n')));
    }
    Bytes requests;
    for (std::uint32_t i = 1; i <= 32'000; ++i) {
        appendFrame(requests, StatusRequest{i});
    }
    const std::size_t before = heapBytes();
    const std::size_t taken = peers.front()->sendWhatIsTaken(requests);
    EXPECT_GT(taken, 0U);
    FrontEnd observer(folder_);
    observer.untilVolume();
    untilStatus(observer, [](const StatusReply&) { return true; });
    EXPECT_LT(heapBytes(), before + std::size_t{32} * 1024 * 1024);
    // All that were taken are answered once the front end reads.
    const auto wholeOnes = static_cast<std::uint32_t>(taken / 9);
    for (std::uint32_t i = 1; i <= std::min<std::uint32_t>(wholeOnes, 200); ++i) {
        ASSERT_EQ(peers.front()->hear<StatusReply>().request, i);
    }
}

TEST_F(LinkPressureTest, WithoutDescriptorsItWaitsAndThenServes) {
    Serving serving(folder_, script_);
    FrontEnd first(folder_);
    first.untilVolume();
    RawPeer waiting(folder_, Opens::later);
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const int lowestFree = OwnedFd(::dup(0)).get();
    const rlimit few{static_cast<rlim_t>(lowestFree), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    waiting.connect();
    waiting.say(Hello{1, 1, "waiting"});
    const auto used = serving.processorTime();
    // Time itself is the matter: the extension must not spin while it cannot accept.
    EXPECT_FALSE(waiting.hears(milliseconds(500)));
    EXPECT_LT(serving.processorTime() - used, milliseconds(100));
    first.client.send(Ping{1});
    first.until([&] { return first.pong.has_value(); });
    ::setrlimit(RLIMIT_NOFILE, &before);
    waiting.hear<Welcome>();
}

TEST_F(LinkPressureTest, StoppingLeavesTheErrorNumberAlone) {
    Serving serving(folder_, script_, kGreetingTime);
    RawPeer silent(folder_);
    EXPECT_TRUE(silent.isHungUpOn()) << "by then nothing is left to do";
    // In the place of what wakes the server: something that cannot be written to.
    std::vector<int> fds;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        fds.push_back(std::stoi(entry.path().filename()));
    }
    const OwnedFd unwritable(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    std::map<int, OwnedFd> counters;
    for (const int fd : fds) {
        std::error_code error;
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        if (std::filesystem::read_symlink(link, error) == "anon_inode:[eventfd]") {
            counters.emplace(fd, ::dup(fd));
            ASSERT_GE(::dup2(unwritable.get(), fd), 0);
        }
    }
    ASSERT_FALSE(counters.empty());
    errno = ENOTTY;
    serving.stop();
    const int after = errno;
    for (const auto& [fd, counter] : counters) {
        ASSERT_GE(::dup2(counter.get(), fd), 0);
    }
    EXPECT_EQ(after, ENOTTY);
}

} // namespace
} // namespace corvid::link
