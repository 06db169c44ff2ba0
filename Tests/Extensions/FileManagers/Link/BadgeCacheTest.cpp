// What a front end remembers and asks for, with an extension that the test plays.

#include "Extensions/FileManagers/Link/BadgeCache.h"
#include "Tests/Extensions/FileManagers/Link/PlayedExtension.h"
#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace corvid::link {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class BadgeCacheTest : public ::testing::Test, private LinkClient::Delegate {
protected:
    BadgeCacheTest()
        : client_(*this, {"test", {}, {}, kOldestVersion, kNewestVersion, folder_}),
          cache_(client_, [this](const std::string&, const std::vector<std::string>& names,
                                 BadgeCache::Change) {
              redrawn_.insert(redrawn_.end(), names.begin(), names.end());
          }) {
        client_.open();
    }

    void until(const std::function<bool()>& isDone) {
        while (!isDone()) {
            pollfd entry{client_.fd(), POLLIN, 0};
            ASSERT_EQ(::poll(&entry, 1, 60'000), 1) << "it did not happen";
            client_.dispatch();
        }
    }
    /// Until the front end has done what there is to do.
    void doAll() {
        pollfd entry{client_.fd(), POLLIN, 0};
        while (::poll(&entry, 1, 0) == 1) {
            client_.dispatch();
        }
    }
    void connect() {
        until([this] { return extension_.isCalled(); });
        extension_.accept();
        extension_.hear<Hello>();
        extension_.say(Welcome{kNewestVersion, 1, "1"});
        extension_.say(Volume{"/v"});
        doAll();
    }
    void tell(const std::string& folder, const std::string& name, const std::string& badge,
              bool isAnswer) {
        extension_.say(Badges{folder, {{name, badge, isAnswer}}});
        doAll();
    }
    std::vector<std::string> asked() {
        std::vector<std::string> names;
        for (const AskedItem& item : extension_.hear<Ask>().items) {
            names.push_back(item.name);
        }
        return names;
    }
    void expectSilence() {
        ASSERT_TRUE(client_.send(Ping{99}));
        EXPECT_EQ(extension_.hear<Ping>().request, 99U);
    }

    TemporaryFolder scratch_;
    RuntimeFolder folder_{scratch_ / "corvid"};
    PlayedExtension extension_{folder_};
    LinkClient client_;
    BadgeCache cache_;
    std::vector<std::string> redrawn_;
    std::string loss_;

private:
    void linkUp() override { cache_.linkUp(); }
    void linkDown(const std::string& reason) override { loss_ = reason; }
    void linkRefused(const std::string& /*reason*/) override {}
    void received(Message message) override {
        if (const auto* const badges = std::get_if<Badges>(&message)) {
            cache_.received(*badges);
        } else if (const auto* const volume = std::get_if<Volume>(&message)) {
            cache_.received(*volume);
        }
    }
    void woken() override { cache_.woken(); }
};

TEST_F(BadgeCacheTest, EachItemIsAskedForOnce) {
    connect();
    cache_.begin("/v");
    extension_.hear<Begin>();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(cache_.badge("/v", "a", false), "");
    }
    doAll();
    EXPECT_THAT(asked(), ElementsAre("a"));
    cache_.badge("/v", "a", false);
    tell("/v", "a", "synced", true);
    EXPECT_EQ(cache_.badge("/v", "a", false), "synced");
    doAll();
    expectSilence();
    // Save for one that has changed, which keeps its badge until the answer has come.
    EXPECT_EQ(cache_.refresh("/v", "a", false), "synced");
    doAll();
    EXPECT_THAT(asked(), ElementsAre("a"));
}

TEST_F(BadgeCacheTest, ManyAreAskedForInFewQuestions) {
    connect();
    cache_.begin("/v");
    extension_.hear<Begin>();
    for (std::size_t i = 0; i < 2 * kMaxBatchSize + 5; ++i) {
        cache_.badge("/v", std::to_string(i), false);
    }
    doAll();
    EXPECT_EQ(asked().size(), kMaxBatchSize);
    EXPECT_EQ(asked().size(), kMaxBatchSize);
    EXPECT_EQ(asked().size(), 5U);
    expectSilence();
}

TEST_F(BadgeCacheTest, OnlyWhatIsNewIsDrawnAnew) {
    connect();
    cache_.begin("/v");
    cache_.badge("/v", "a", false);
    tell("/v", "a", "synced", true);
    EXPECT_THAT(redrawn_, ElementsAre("a"));
    redrawn_.clear();
    tell("/v", "a", "synced", false);
    EXPECT_THAT(redrawn_, IsEmpty());
    tell("/v", "a", "", false);
    EXPECT_THAT(redrawn_, ElementsAre("a"));
    EXPECT_EQ(cache_.badge("/v", "a", false), "");
}

TEST_F(BadgeCacheTest, ANewExtensionIsAskedAgain) {
    connect();
    cache_.begin("/v");
    cache_.begin("/v/x");
    cache_.badge("/v", "a", false);
    cache_.badge("/v", "b", false);
    tell("/v", "a", "synced", true);
    extension_.hangUp();
    until([this] { return !client_.isUp(); });
    EXPECT_EQ(cache_.badge("/v", "a", false), "synced") << "as it was last known";
    connect();
    EXPECT_THAT((std::vector{extension_.hear<Begin>().folder, extension_.hear<Begin>().folder}),
                UnorderedElementsAre("/v", "/v/x"));
    EXPECT_THAT(asked(), UnorderedElementsAre("a", "b"));
    tell("/v", "a", "error", true);
    EXPECT_EQ(cache_.badge("/v", "a", false), "error");
}

TEST_F(BadgeCacheTest, AVolumeThatMovesTakesTheBadgesAlongAndBringsThemBack) {
    connect();
    cache_.begin("/v");
    extension_.hear<Begin>();
    cache_.badge("/v", "a", false);
    doAll();
    EXPECT_THAT(asked(), ElementsAre("a"));
    tell("/v", "a", "synced", true);
    redrawn_.clear();
    extension_.say(Volume{"/other"});
    doAll();
    EXPECT_THAT(redrawn_, ElementsAre("a"));
    EXPECT_EQ(cache_.badge("/v", "a", false), "");
    extension_.say(Volume{"/v"});
    doAll();
    EXPECT_EQ(extension_.hear<Begin>().folder, "/v");
    EXPECT_THAT(asked(), ElementsAre("a"));
}

TEST_F(BadgeCacheTest, EachTryWaitsTwiceAsLongAsTheOneBefore) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    std::vector<steady_clock::duration> pauses;
    for (int i = 0; i < 4; ++i) {
        const auto begin = steady_clock::now();
        until([this] { return extension_.isCalled(); });
        pauses.push_back(steady_clock::now() - begin);
        extension_.accept();
        extension_.hangUp();
    }
    EXPECT_GE(pauses[1], milliseconds(95));
    EXPECT_GE(pauses[2], milliseconds(195));
    EXPECT_GE(pauses[3], milliseconds(395));
    EXPECT_LT(pauses[1], milliseconds(4000)) << "soon";
}

TEST_F(BadgeCacheTest, MoreFoldersThanTheLinkCarriesTakeTurns) {
    connect();
    for (std::size_t i = 0; i < kMaxFoldersShown; ++i) {
        cache_.begin("/v/" + std::to_string(i));
        extension_.hear<Begin>();
    }
    cache_.begin("/v/beyond");
    cache_.badge("/v/beyond", "a", false);
    doAll();
    expectSilence();
    EXPECT_EQ(cache_.unanswered(), 0U);
    cache_.end("/v/7");
    EXPECT_EQ(extension_.hear<End>().folder, "/v/7");
    EXPECT_EQ(extension_.hear<Begin>().folder, "/v/beyond");
    doAll();
    EXPECT_THAT(asked(), ElementsAre("a"));
    // One that never had room goes unheard.
    cache_.begin("/v/further");
    cache_.end("/v/further");
    expectSilence();
}

TEST_F(BadgeCacheTest, AFloodOfBadgesThatNobodyAskedForIsBounded) {
    connect();
    cache_.begin("/v");
    extension_.hear<Begin>();
    Badges badges;
    badges.folder = "/v";
    for (std::size_t i = 0; i < BadgeCache::kMaxItemsPushed + 10; ++i) {
        badges.items.push_back({std::to_string(i), "error", false});
    }
    cache_.received(badges);
    EXPECT_EQ(cache_.known("/v", std::to_string(BadgeCache::kMaxItemsPushed - 1)), "error");
    EXPECT_EQ(cache_.known("/v", std::to_string(BadgeCache::kMaxItemsPushed)), "");
    // What is drawn is asked for all the same, and its answer kept.
    cache_.badge("/v", "drawn", false);
    doAll();
    EXPECT_THAT(asked(), ElementsAre("drawn"));
    tell("/v", "drawn", "synced", true);
    EXPECT_EQ(cache_.badge("/v", "drawn", false), "synced");
}

TEST_F(BadgeCacheTest, AnItemThatTheLinkDoesNotCarryHoldsUpNoOther) {
    connect();
    cache_.begin("/v");
    extension_.hear<Begin>();
    cache_.badge("/v", std::string(kMaxNameSize + 1, 'x'), false);
    cache_.badge("/v", "..", true);
    cache_.badge("/v", "a", false);
    doAll();
    EXPECT_THAT(asked(), ElementsAre("a"));
    EXPECT_EQ(cache_.unanswered(), 1U);
}

TEST_F(BadgeCacheTest, AnExtensionThatDoesNotReadIsHungUpOnAndAskedAnew) {
    connect();
    cache_.begin("/v");
    cache_.badge("/v", "a", false);
    doAll();
    std::string path = "/v";
    for (int i = 0; i < 16; ++i) {
        path += "/" + std::string(kMaxNameSize - 5, 'x');
    }
    MenuRequest request{1, 1, 0, "/v", {}};
    request.selection.assign(4000, {path, false});
    std::size_t sent = 0;
    while (client_.send(request)) {
        sent += 4000 * path.size();
    }
    EXPECT_GE(sent, LinkClient::kMaxUnsent);
    EXPECT_LE(sent, LinkClient::kMaxUnsent + 2 * kMaxFrameSize);
    EXPECT_TRUE(client_.isUp());
    until([this] { return !client_.isUp(); });
    EXPECT_EQ(loss_, "The extension has not read what it was told.");
    connect();
    EXPECT_EQ(extension_.hear<Begin>().folder, "/v");
    EXPECT_THAT(asked(), ElementsAre("a"));
    tell("/v", "a", "synced", true);
    EXPECT_EQ(cache_.badge("/v", "a", false), "synced");
}

TEST_F(BadgeCacheTest, ItemsOfTheFolderShownLongestAgoGoFirst) {
    connect();
    const std::size_t items = BadgeCache::kMaxItemsKept / 2 + 1;
    for (const std::string folder : {"/v/first", "/v/second"}) {
        cache_.begin(folder);
        tell(folder, "0", "error", false);
        for (std::size_t i = 0; i < items; ++i) {
            cache_.badge(folder, std::to_string(i), false);
        }
        cache_.end(folder);
    }
    cache_.begin("/v/first");
    EXPECT_EQ(cache_.badge("/v/first", "0", false), "");
    cache_.begin("/v/second");
    EXPECT_EQ(cache_.badge("/v/second", "0", false), "error");
}

} // namespace
} // namespace corvid::link
