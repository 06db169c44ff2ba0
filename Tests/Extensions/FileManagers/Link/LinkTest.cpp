// Both ends of the link, over a real socket.

#include "Tests/Extensions/FileManagers/Link/LinkEnds.h"
#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace corvid::link {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class LinkTest : public ::testing::Test {
protected:
    TemporaryFolder scratch_;
    RuntimeFolder folder_{scratch_ / "corvid"};
    Script script_;
};

TEST_F(LinkTest, BadgesAreAskedForInBatchesAndOnceEach) {
    Serving serving(folder_, script_);
    FrontEnd frontEnd(folder_);
    frontEnd.cache.begin("/v/x");
    for (int i = 0; i < 5000; ++i) {
        EXPECT_EQ(frontEnd.cache.badge("/v/x", std::to_string(i), false), "");
    }
    frontEnd.until([&] { return !frontEnd.volume.empty() && frontEnd.cache.unanswered() == 0; });
    EXPECT_EQ(frontEnd.cache.badge("/v/x", "4999", false), "synced");
    EXPECT_EQ(frontEnd.cache.unanswered(), 0U);
    EXPECT_EQ(frontEnd.redrawn.size(), 5000U);
    EXPECT_LT(frontEnd.redraws, 2500);
    EXPECT_EQ(frontEnd.lastChange, BadgeCache::Change::firstBadge);
    std::size_t asked = 0;
    for (const std::string& call : script_.calls.lines()) {
        asked += call.starts_with("badge") ? 1U : 0U;
    }
    EXPECT_EQ(asked, 5000U);
}

TEST_F(LinkTest, OutsideTheVolumeNothingIsSent) {
    Serving serving(folder_, script_);
    FrontEnd frontEnd(folder_);
    frontEnd.untilVolume();
    frontEnd.cache.begin("/vv");
    EXPECT_EQ(frontEnd.cache.badge("/vv", "a", false), "");
    EXPECT_EQ(frontEnd.cache.unanswered(), 0U);
    frontEnd.cache.begin("/v");
    frontEnd.cache.badge("/v", "a", false);
    frontEnd.until([&] { return frontEnd.cache.unanswered() == 0; });
    EXPECT_THAT(script_.calls.lines(),
                ElementsAre("begin file:///Volumes/Corvid/", "badge file:///Volumes/Corvid/a"));
}

TEST_F(LinkTest, TwoFrontEndsShowOneFolderAndOneLeaves) {
    Serving serving(folder_, script_);
    FrontEnd first(folder_);
    first.untilVolume();
    first.cache.begin("/v");
    {
        FrontEnd second(folder_);
        second.untilVolume();
        second.cache.begin("/v");
        second.cache.badge("/v", "a", false);
        second.until([&] { return second.cache.unanswered() == 0; });
    }
    serving.finder().setBadgeIdentifier("error", *URL::fileURL("/Volumes/Corvid/a"));
    first.until([&] { return first.news["a"] == "error"; });
    first.cache.end("/v");
    first.client.send(Ping{1});
    first.until([&] { return first.pong.has_value(); });
    EXPECT_THAT(script_.calls.lines(), Contains("begin file:///Volumes/Corvid/").Times(1));
}

TEST_F(LinkTest, ConnectsAnewAndAsksAgain) {
    FrontEnd frontEnd(folder_);
    EXPECT_EQ(frontEnd.loss, "The extension is not running.");
    auto serving = std::make_unique<Serving>(folder_, script_);
    frontEnd.cache.begin("/v");
    frontEnd.cache.badge("/v", "a", false);
    frontEnd.until([&] { return frontEnd.cache.badge("/v", "a", false) == "synced"; });

    serving.reset();
    frontEnd.loss.clear();
    frontEnd.until([&] { return !frontEnd.loss.empty(); });
    EXPECT_EQ(frontEnd.loss, "The extension has ended.");
    // What is on the screen stays until something better is known.
    EXPECT_EQ(frontEnd.cache.badge("/v", "a", false), "synced");

    script_.badges = {{"a", "error"}};
    serving = std::make_unique<Serving>(folder_, script_);
    frontEnd.until([&] { return frontEnd.cache.badge("/v", "a", false) == "error"; });
    EXPECT_EQ(frontEnd.lastChange, BadgeCache::Change::otherBadge);
    EXPECT_EQ(frontEnd.ups, 2);
}

TEST_F(LinkTest, FindsAnExtensionThatSomebodyElseStarts) {
    FrontEnd beforeTheFolder(folder_, kOldestVersion, kNewestVersion, {}, std::chrono::hours(1));
    folder_.open(RuntimeFolder::IfMissing::create);
    FrontEnd beforeTheSocket(folder_, kOldestVersion, kNewestVersion, {}, std::chrono::hours(1));
    for (FrontEnd* const frontEnd : {&beforeTheFolder, &beforeTheSocket}) {
        EXPECT_EQ(frontEnd->loss, "The extension is not running.");
    }
    const Serving serving(folder_, script_);
    beforeTheSocket.untilVolume();
    EXPECT_EQ(beforeTheSocket.volume, "/v");
    // It learns of the folder, looks into it, and then finds the socket there.
    beforeTheFolder.untilVolume();
    EXPECT_EQ(beforeTheFolder.volume, "/v");
}

TEST_F(LinkTest, AFrontEndOfAnotherTimeIsToldToRestart) {
    Serving serving(folder_, script_);
    FrontEnd older(folder_, 0, kOldestVersion - 1);
    older.until([&] { return !older.refusal.empty(); });
    EXPECT_THAT(older.refusal, HasSubstr("older than the extension"));
    FrontEnd newer(folder_, kNewestVersion + 1, kNewestVersion + 5);
    newer.until([&] { return !newer.refusal.empty(); });
    EXPECT_THAT(newer.refusal, HasSubstr("newer than the extension"));
    // One that also speaks a version of this time keeps working.
    FrontEnd wide(folder_, 0, kNewestVersion + 5);
    wide.untilVolume();
}

TEST_F(LinkTest, HangsUpOnWhatIsNoFrontEnd) {
    Serving serving(folder_, script_);
    Bytes hello;
    appendFrame(hello, Hello{1, 1, "raw"});
    Bytes helloTwice = hello;
    helloTwice.insert(helloTwice.end(), hello.begin(), hello.end());
    Bytes beginFirst;
    appendFrame(beginFirst, Begin{"/v"});
    Bytes answer = hello;
    appendFrame(answer, Pong{1});
    const std::map<std::string, Bytes> cases{
        {"no greeting first", beginFirst},
        {"two greetings", helloTwice},
        {"what only the extension says", answer},
        {"a frame of no length", {0, 0, 0, 0}},
        {"a frame of 4 GiB", {0xFF, 0xFF, 0xFF, 0xFF, 1}},
        {"another protocol", {'G', 'E', 'T', ' ', '/', ' ', 'H', 'T'}},
        {"a cut greeting", {2, 0, 0, 0, 1, 'C'}},
    };
    for (const auto& [what, bytes] : cases) {
        RawPeer peer(folder_);
        peer.send(bytes);
        EXPECT_TRUE(peer.isHungUpOn()) << what;
    }
}

TEST_F(LinkTest, SkipsFramesThatItDoesNotKnow) {
    Serving serving(folder_, script_);
    FrontEnd frontEnd(folder_);
    // Before there is a volume nothing on it can be begun.
    frontEnd.untilVolume();
    RawPeer peer(folder_);
    Bytes bytes;
    appendFrame(bytes, Hello{1, 9, "later"});
    bytes.insert(bytes.end(), {3, 0, 0, 0, 200, 1, 2});
    appendFrame(bytes, Begin{"/v/later"});
    // Byte by byte: frames do not come in one piece.
    for (const std::uint8_t byte : bytes) {
        peer.send({byte});
    }
    frontEnd.until([&] {
        frontEnd.client.send(StatusRequest{1});
        return frontEnd.status && frontEnd.status->shownFolders == 1;
    });
    EXPECT_EQ(frontEnd.status->pid, 77U);
    EXPECT_EQ(frontEnd.status->programVersion, "1.2");
    EXPECT_THAT(frontEnd.status->frontEnds, ElementsAre("test", "later"));
}

TEST_F(LinkTest, SaysWhyTheExtensionCannotBeStarted) {
    FrontEnd frontEnd(folder_, kOldestVersion, kNewestVersion, "/nowhere/corvid-finder-ext");
    frontEnd.until([&] { return !frontEnd.loss.empty(); });
    EXPECT_THAT(frontEnd.loss, HasSubstr("/nowhere/corvid-finder-ext could not be started"));
    FrontEnd silent(folder_, kOldestVersion, kNewestVersion, "/bin/true");
    silent.until([&] { return !silent.loss.empty(); });
    EXPECT_EQ(silent.loss, "The extension ended without saying why.");
}

TEST_F(LinkTest, KeepsFoldersShownLastAndForgetsTheOldest) {
    Serving serving(folder_, script_);
    FrontEnd frontEnd(folder_);
    frontEnd.untilVolume();
    const auto visit = [&](const std::string& folder) {
        frontEnd.cache.begin(folder);
        frontEnd.cache.badge(folder, "a", false);
        frontEnd.until([&] { return frontEnd.cache.unanswered() == 0; });
        frontEnd.cache.end(folder);
    };
    visit("/v/first");
    for (std::size_t i = 1; i < BadgeCache::kMaxFoldersKept; ++i) {
        visit("/v/" + std::to_string(i));
    }
    frontEnd.cache.begin("/v/first");
    EXPECT_EQ(frontEnd.cache.badge("/v/first", "a", false), "synced");
    frontEnd.cache.end("/v/first");
    visit("/v/last");
    // Now "/v/1" is the one that was shown longest ago.
    frontEnd.cache.begin("/v/1");
    EXPECT_EQ(frontEnd.cache.badge("/v/1", "a", false), "");
    frontEnd.cache.begin("/v/first");
    EXPECT_EQ(frontEnd.cache.badge("/v/first", "a", false), "synced");
}

} // namespace
} // namespace corvid::link
