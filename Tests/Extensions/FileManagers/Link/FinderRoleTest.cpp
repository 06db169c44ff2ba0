#include "Extensions/FileManagers/Link/FinderRole.h"

#include "Core/Archive/OpaqueObject.h"
#include "Tests/Extensions/FileManagers/Link/ScriptedExtension.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace corvid::link {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

constexpr FinderRole::Connection kAnn = 1;
constexpr FinderRole::Connection kBob = 2;

class FinderRoleTest : public ::testing::Test {
protected:
    /// Far longer than anything takes here.
    static constexpr std::chrono::seconds kPatience{60};

    FinderRoleTest() : role_(*VolumeMapping::make("/home/ann/Corvid"), [this] { wake(); }) {
        role_.connect(kAnn);
        role_.connect(kBob);
    }
    ~FinderRoleTest() override {
        script_.release();
        role_.stop();
    }

    void start(unsigned badgeThreads = 2) {
        role_.start([this] { return std::make_shared<ScriptedExtension>(script_, role_); },
                    badgeThreads);
    }

    /// The first message of type T for the connection; others wait. Fails when none comes.
    template <class T>
    T next(FinderRole::Connection connection) {
        return nextWhere<T>(connection, [](const T&) { return true; });
    }
    template <class T, class Predicate>
    T nextWhere(FinderRole::Connection connection, Predicate isWanted) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        std::deque<Message>& aside = aside_[connection];
        auto looked = aside.begin();
        while (true) {
            while (auto message = role_.takeMessage(connection)) {
                const auto position = looked - aside.begin();
                aside.push_back(std::move(*message));
                looked = aside.begin() + position;
            }
            for (; looked != aside.end(); ++looked) {
                if (const T* wanted = std::get_if<T>(&*looked); wanted && isWanted(*wanted)) {
                    const T found = *wanted;
                    aside.erase(looked);
                    return found;
                }
            }
            MutexLock lock(mutex_);
            while (!isWoken_) {
                if (!lock.waitUntil(woken_, deadline)) {
                    ADD_FAILURE() << "the message did not come";
                    return T{};
                }
            }
            isWoken_ = false;
        }
    }

    /// "name=badge" of the items that are answered until all of `names` are.
    std::vector<std::string> answers(FinderRole::Connection connection, std::size_t count) {
        std::vector<std::string> lines;
        while (lines.size() < count && !HasFailure()) {
            for (const ItemBadge& item : next<Badges>(connection).items) {
                if (item.isAnswer) {
                    lines.push_back(item.name + "=" + item.badge);
                }
            }
        }
        return lines;
    }

    void begin(FinderRole::Connection connection, const std::string& folder) {
        ASSERT_TRUE(role_.handle(connection, Begin{folder}));
    }
    void ask(FinderRole::Connection connection, const std::string& folder,
             std::vector<AskedItem> items) {
        ASSERT_TRUE(role_.handle(connection, Ask{folder, std::move(items)}));
    }
    MenuRequest menuRequest(std::uint32_t request, std::uint32_t context = 0) {
        return {request, context, 0, "/home/ann/Corvid", {{"/home/ann/Corvid/a", false}}};
    }
    MenuReply menu(FinderRole::Connection connection, const MenuRequest& request) {
        EXPECT_TRUE(role_.handle(connection, request));
        return nextWhere<MenuReply>(
            connection, [&](const MenuReply& reply) { return reply.request == request.request; });
    }
    ClickOutcome click(FinderRole::Connection connection, std::uint32_t menuId,
                       std::uint32_t item) {
        EXPECT_TRUE(role_.handle(connection, Click{1, menuId, item}));
        return next<ClickReply>(connection).outcome;
    }
    std::shared_ptr<MenuItem> addItem(const std::string& title, Menu* parent = nullptr) {
        auto item = std::make_shared<MenuItem>();
        item->title = title;
        (parent != nullptr ? parent : script_.menu.get())->items.push_back(item);
        return item;
    }

    Script script_;
    FinderRole role_;

private:
    void wake() {
        const MutexLock lock(mutex_);
        isWoken_ = true;
        woken_.notify_all();
    }
    Mutex mutex_;
    std::condition_variable woken_;
    bool isWoken_ = false;
    std::map<FinderRole::Connection, std::deque<Message>> aside_;
};

// Until the extension watches its folder there is no volume to speak of.
TEST_F(FinderRoleTest, SaysWhereTheVolumeIsOnceItIsWatched) {
    EXPECT_TRUE(std::holds_alternative<HostStateChange>(*role_.takeMessage(kAnn)));
    EXPECT_FALSE(role_.takeMessage(kAnn));
    start();
    EXPECT_EQ(next<Volume>(kAnn).folder, "/home/ann/Corvid");
    const auto kinds = nextWhere<BadgeKinds>(
        kAnn, [](const BadgeKinds& badges) { return badges.kinds.size() == 4; });
    EXPECT_EQ(kinds.kinds.front(), (BadgeKind{"synced", "Label of synced", ""}));
}

TEST_F(FinderRoleTest, AsksForBadgesByURLAndAnswersByName) {
    start();
    next<Volume>(kAnn);
    script_.badges = {{"b c", "error"}};
    begin(kAnn, "/home/ann/Corvid/x");
    ask(kAnn, "/home/ann/Corvid/x", {{"a", true}, {"b c", false}});
    EXPECT_THAT(answers(kAnn, 2), UnorderedElementsAre("a=synced", "b c=error"));
    role_.handle(kAnn, End{"/home/ann/Corvid/x"});
    role_.stop();
    const auto calls = script_.calls.lines();
    EXPECT_EQ(calls.front(), "begin file:///Volumes/Corvid/x/");
    EXPECT_THAT(calls, Contains("badge file:///Volumes/Corvid/x/a/"));
    EXPECT_THAT(calls, Contains("badge file:///Volumes/Corvid/x/b%20c"));
    EXPECT_EQ(calls.back(), "teardown");
}

TEST_F(FinderRoleTest, NeverAsksAboutANameThatIsNotUTF8) {
    start();
    next<Volume>(kAnn);
    begin(kAnn, "/home/ann/Corvid");
    ask(kAnn, "/home/ann/Corvid", {{"\xFF", false}, {"a", false}});
    EXPECT_THAT(answers(kAnn, 2), UnorderedElementsAre("\xFF=", "a=synced"));
    EXPECT_THAT(script_.calls.lines(),
                ElementsAre("begin file:///Volumes/Corvid/", "badge file:///Volumes/Corvid/a"));
    EXPECT_EQ(menu(kAnn, {1, 0, 0, "/home/ann/Corvid", {{"/home/ann/Corvid/\xFF", false}}}).outcome,
              MenuOutcome::notOnVolume);
}

TEST_F(FinderRoleTest, WhatIsNotOnTheVolumeHasNoBadgeAndIsNotAskedAbout) {
    start();
    next<Volume>(kAnn);
    begin(kAnn, "/home/ann");
    ask(kAnn, "/home/ann", {{"Corvid", true}, {"a", false}});
    EXPECT_THAT(answers(kAnn, 2), UnorderedElementsAre("Corvid=", "a="));
    ask(kAnn, "/home/ann/Corvid/not-shown", {{"a", false}});
    EXPECT_THAT(answers(kAnn, 1), ElementsAre("a="));
    EXPECT_THAT(script_.calls.lines(), IsEmpty());
}

TEST_F(FinderRoleTest, PushesReachWhoShowsTheFolder) {
    start();
    // The extension names the folder first, and then one badge after the other.
    nextWhere<BadgeKinds>(kAnn, [](const BadgeKinds& told) {
        return std::ranges::any_of(
            told.kinds, [](const BadgeKind& kind) { return kind.identifier == "error"; });
    });
    begin(kAnn, "/home/ann/Corvid");
    role_.setBadgeIdentifier("error", *URL::fileURL("/Volumes/Corvid/d", true));
    EXPECT_THAT(next<Badges>(kAnn).items, ElementsAre(ItemBadge{"d", "error", false}));
    // An identifier that was never registered takes the badge away.
    role_.setBadgeIdentifier("none", *URL::fileURL("/Volumes/Corvid/d", false));
    EXPECT_THAT(next<Badges>(kAnn).items, ElementsAre(ItemBadge{"d", "", false}));
}

TEST_F(FinderRoleTest, AMenuIsMadeForItsSelection) {
    auto first = addItem("First");
    first->state = MenuItemState::on;
    first->toolTip = "tip";
    addItem("Off")->isEnabled = false;
    script_.menu->items.push_back(MenuItem::separator());
    script_.menu->items.back()->isSeparator = true;
    auto sub = addItem("Sub");
    sub->submenu = std::make_shared<Menu>();
    auto inner = addItem("Inner", sub->submenu.get());
    inner->submenu = std::make_shared<Menu>();
    addItem("Too deep", inner->submenu.get());
    script_.menu->title = "Corvid";
    start();
    const MenuReply reply = menu(kAnn, menuRequest(7));
    EXPECT_EQ(reply.outcome, MenuOutcome::made);
    EXPECT_EQ(reply.title, "Corvid");
    ASSERT_EQ(reply.entries.size(), 4U);
    EXPECT_EQ(reply.entries[0].toolTip, "tip");
    EXPECT_EQ(reply.entries[0].state, 1);
    EXPECT_TRUE(reply.entries[0].isEnabled);
    EXPECT_FALSE(reply.entries[1].isEnabled);
    EXPECT_TRUE(reply.entries[2].isSeparator);
    EXPECT_FALSE(reply.entries[2].isEnabled);
    EXPECT_TRUE(reply.entries[3].submenu[0].isEnabled);
    // Its click would never reach the extension.
    EXPECT_FALSE(reply.entries[3].submenu[0].submenu[0].isEnabled);
    EXPECT_THAT(script_.calls.lines(),
                ElementsAre("menu 0 in /Volumes/Corvid on /Volumes/Corvid/a"));
}

TEST_F(FinderRoleTest, ABackgroundMenusSelectionAndTargetAreOneURL) {
    start();
    menu(kAnn, {1, 0, 1, "/home/ann/Corvid/x", {{"/home/ann/Corvid/x", true}}});
    EXPECT_THAT(script_.calls.lines(),
                ElementsAre("menu 1 in /Volumes/Corvid/x on /Volumes/Corvid/x/"));
}

TEST_F(FinderRoleTest, AClickSendsTheVeryItemThatWasShown) {
    auto sub = addItem("Sub");
    sub->submenu = std::make_shared<Menu>();
    addItem("Inner", sub->submenu.get());
    addItem("Off")->isEnabled = false;
    start();
    const MenuReply older = menu(kAnn, menuRequest(1));
    // The host offers another menu from now on.
    script_.menu = std::make_shared<Menu>();
    addItem("New");
    const MenuReply newer =
        menu(kAnn, {2, 0, 0, "/home/ann/Corvid", {{"/home/ann/Corvid/b", false}}});
    EXPECT_EQ(click(kAnn, older.menu, 1), ClickOutcome::sent);
    EXPECT_EQ(click(kAnn, newer.menu, 0), ClickOutcome::sent);
    EXPECT_EQ(click(kAnn, newer.menu, 0), ClickOutcome::sent);
    EXPECT_EQ(click(kAnn, older.menu, 2), ClickOutcome::notClickable);
    EXPECT_EQ(click(kAnn, older.menu, 3), ClickOutcome::notClickable);
    EXPECT_EQ(click(kAnn, newer.menu + 1, 0), ClickOutcome::unknownMenu);
    EXPECT_EQ(click(kBob, older.menu, 1), ClickOutcome::unknownMenu);
    EXPECT_THAT(script_.calls.lines(),
                ElementsAre("menu 0 in /Volumes/Corvid on /Volumes/Corvid/a",
                            "menu 0 in /Volumes/Corvid on /Volumes/Corvid/b",
                            "click Inner in /Volumes/Corvid on /Volumes/Corvid/a",
                            "click New in /Volumes/Corvid on /Volumes/Corvid/b",
                            "click New in /Volumes/Corvid on /Volumes/Corvid/b"));
}

TEST_F(FinderRoleTest, ANewerMenuRequestReplacesAnUnsentOneOfItsContext) {
    start();
    script_.hold("menu");
    role_.handle(kAnn, menuRequest(1));
    script_.waitUntilHeld();
    role_.handle(kAnn, menuRequest(2));
    role_.handle(kAnn, menuRequest(3, 1));
    role_.handle(kBob, menuRequest(4));
    role_.handle(kAnn, menuRequest(5));
    const MenuReply reply = next<MenuReply>(kAnn);
    EXPECT_EQ(reply.request, 2U);
    EXPECT_EQ(reply.outcome, MenuOutcome::superseded);
    script_.release();
    std::vector<std::uint32_t> made;
    for (int i = 0; i < 3; ++i) {
        made.push_back(next<MenuReply>(kAnn).request);
    }
    EXPECT_THAT(made, ElementsAre(1, 3, 5));
    EXPECT_EQ(next<MenuReply>(kBob).request, 4U);
}

TEST_F(FinderRoleTest, HangsUpOnWhoWantsTooMuchAtOnce) {
    start();
    script_.hold("menu");
    role_.handle(kAnn, menuRequest(1));
    script_.waitUntilHeld();
    bool isBorne = true;
    std::uint32_t count = 1;
    while (isBorne && count < 1000) {
        ++count;
        isBorne = role_.handle(kAnn, menuRequest(count, count));
    }
    EXPECT_FALSE(isBorne);
    EXPECT_EQ(count, 65U);
}

TEST_F(FinderRoleTest, MenusThatNobodyTakesAreNotMadeInAdvance) {
    constexpr std::uint32_t kMenus = 10;
    addItem("Large")->toolTip = std::string(kMaxFrameSize / 2, 't');
    start();
    next<Volume>(kAnn);
    for (std::uint32_t i = 1; i <= kMenus; ++i) {
        ASSERT_TRUE(role_.handle(kAnn, menuRequest(i, i)));
    }
    EXPECT_EQ(menu(kBob, menuRequest(1)).outcome, MenuOutcome::made) << "another is not held up";
    EXPECT_EQ(script_.calls.lines().size(), 2U);
    for (std::uint32_t i = 1; i <= kMenus; ++i) {
        EXPECT_EQ(next<MenuReply>(kAnn).request, i);
    }
    EXPECT_EQ(script_.calls.lines().size(), kMenus + 1);
}

TEST_F(FinderRoleTest, AMenuThatDoesNotFitIsRefusedAndNotKept) {
    addItem("Large")->toolTip = std::string(kMaxFrameSize + 1, 't');
    start();
    MenuReply reply = menu(kAnn, menuRequest(1));
    EXPECT_EQ(reply.outcome, MenuOutcome::tooLarge);
    EXPECT_EQ(click(kAnn, reply.menu, 0), ClickOutcome::unknownMenu);
    script_.menu = std::make_shared<Menu>();
    addItem("Deep")->otherFields =
        fieldsWith(nullptr, "blob", Value::data(Bytes(ShownMenus::kMaxMenuBytes)));
    reply = menu(kAnn, menuRequest(2));
    EXPECT_EQ(reply.outcome, MenuOutcome::tooLarge);
    EXPECT_EQ(click(kAnn, reply.menu, 0), ClickOutcome::unknownMenu);
    script_.menu = std::make_shared<Menu>();
    addItem("Small");
    EXPECT_EQ(menu(kAnn, menuRequest(3)).outcome, MenuOutcome::made);
}

TEST_F(FinderRoleTest, SelectionsBeyondTheBoundAreRefusedAndTheNextIsServed) {
    start();
    script_.hold("menu");
    role_.handle(kAnn, menuRequest(1));
    script_.waitUntilHeld();
    MenuRequest large = menuRequest(2, 2);
    large.selection.assign(JobQueue::kMaxBytes / 3000,
                           {"/home/ann/Corvid/" + std::string(2000, 'x'), false});
    ASSERT_TRUE(role_.handle(kAnn, large));
    large.request = 3;
    large.context = 3;
    ASSERT_TRUE(role_.handle(kAnn, large));
    const MenuReply refused = next<MenuReply>(kAnn);
    EXPECT_EQ(refused.request, 3U);
    EXPECT_EQ(refused.outcome, MenuOutcome::tooLarge);
    script_.release();
    EXPECT_EQ(next<MenuReply>(kAnn).request, 1U);
    EXPECT_EQ(next<MenuReply>(kAnn).request, 2U);
}

TEST_F(FinderRoleTest, AMenuDoesNotWaitBehindBadges) {
    start(1);
    next<Volume>(kAnn);
    script_.hold("badge");
    begin(kAnn, "/home/ann/Corvid");
    ask(kAnn, "/home/ann/Corvid", {{"a", false}});
    script_.waitUntilHeld();
    EXPECT_EQ(menu(kAnn, menuRequest(1)).outcome, MenuOutcome::made);
}

TEST_F(FinderRoleTest, QuestionsOfAFolderThatIsGoneAreNotSent) {
    start(1);
    next<Volume>(kAnn);
    script_.hold("badge");
    begin(kAnn, "/home/ann/Corvid");
    ask(kAnn, "/home/ann/Corvid", {{"a", false}, {"b", false}, {"c", false}});
    script_.waitUntilHeld();
    role_.handle(kAnn, End{"/home/ann/Corvid"});
    begin(kAnn, "/home/ann/Corvid/x");
    ask(kAnn, "/home/ann/Corvid/x", {{"d", false}});
    script_.release();
    EXPECT_THAT(answers(kAnn, 1), ElementsAre("d=synced"));
    EXPECT_THAT(script_.calls.lines(), Not(Contains("badge file:///Volumes/Corvid/b")));
}

TEST_F(FinderRoleTest, SaysHowTheHostIs) {
    start();
    next<Volume>(kAnn);
    role_.hostAppeared();
    nextWhere<HostStateChange>(kAnn,
                               [](const auto& host) { return host.state == HostState::present; });
    script_.setHost(Script::Host::fails);
    EXPECT_EQ(menu(kAnn, menuRequest(1)).outcome, MenuOutcome::hostFailed);
    nextWhere<HostStateChange>(
        kBob, [](const auto& host) { return host.state == HostState::notAnswering; });
    role_.hostVanished();
    nextWhere<HostStateChange>(kBob,
                               [](const auto& host) { return host.state == HostState::absent; });
}

TEST_F(FinderRoleTest, TriesAgainAfterAFailureAndAsksAgain) {
    const auto isPresent = [](const HostStateChange& host) {
        return host.state == HostState::present;
    };
    start();
    next<Volume>(kAnn);
    role_.hostAppeared();
    nextWhere<HostStateChange>(kAnn, isPresent);
    begin(kAnn, "/home/ann/Corvid");
    script_.badges = {{"a", "cloud"}};
    script_.setHost(Script::Host::answers);
    script_.hold("badge");
    ask(kAnn, "/home/ann/Corvid", {{"a", false}});
    script_.waitUntilHeld();
    script_.setHost(Script::Host::fails);
    script_.release();
    EXPECT_THAT(answers(kAnn, 1), ElementsAre("a=cloud"));
    nextWhere<HostStateChange>(
        kAnn, [](const auto& host) { return host.state == HostState::notAnswering; });
    EXPECT_TRUE(role_.isRetrying());
    script_.badges = {{"a", "error"}};
    script_.setHost(Script::Host::answers);
    role_.retry();
    EXPECT_THAT(next<Badges>(kAnn).items, ElementsAre(ItemBadge{"a", "error", false}));
    nextWhere<HostStateChange>(kAnn, isPresent);
    EXPECT_FALSE(role_.isRetrying());
}

TEST_F(FinderRoleTest, AnotherVolumeBeginsAnew) {
    start();
    next<Volume>(kAnn);
    begin(kAnn, "/home/ann/Corvid");
    ask(kAnn, "/home/ann/Corvid", {{"a", false}});
    answers(kAnn, 1);
    role_.setVolume(*VolumeMapping::make("/area"));
    EXPECT_EQ(next<Volume>(kAnn).folder, "/area");
    ask(kAnn, "/home/ann/Corvid", {{"a", false}});
    EXPECT_THAT(answers(kAnn, 1), ElementsAre("a="));
    begin(kAnn, "/area/x");
    ask(kAnn, "/area/x", {{"b", false}});
    EXPECT_THAT(answers(kAnn, 1), ElementsAre("b=synced"));
    EXPECT_THAT(script_.calls.lines(),
                ElementsAre("begin file:///Volumes/Corvid/", "badge file:///Volumes/Corvid/a",
                            "end file:///Volumes/Corvid/", "begin file:///Volumes/Corvid/x/",
                            "badge file:///Volumes/Corvid/x/b"));
}

TEST_F(FinderRoleTest, TearsTheExtensionDownOnItsOwnThreadAfterItsLastCall) {
    start();
    next<Volume>(kAnn);
    begin(kAnn, "/home/ann/Corvid");
    script_.hold("badge");
    ask(kAnn, "/home/ann/Corvid", {{"a", false}});
    script_.waitUntilHeld();
    std::thread release([this] { script_.release(); });
    role_.stop();
    release.join();
    EXPECT_EQ(script_.calls.lines().back(), "teardown");
}

} // namespace
} // namespace corvid::link
