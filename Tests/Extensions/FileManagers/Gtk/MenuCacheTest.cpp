// The menus of a module, with an extension that the test plays.

#include "Extensions/FileManagers/Gtk/MenuCache.h"
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

namespace corvid::gtk {
namespace {

using link::Badges;
using link::Click;
using link::HostState;
using link::HostStateChange;
using link::MenuOutcome;
using link::MenuReply;
using link::MenuRequest;
using Use = MenuCache::Use;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

MenuSelection selectionOf(const std::string& name) {
    return {"/v", {{"/v/" + name, false}}, false};
}

std::vector<link::MenuEntry> entriesOf(const std::vector<std::string>& titles) {
    std::vector<link::MenuEntry> entries;
    for (const std::string& title : titles) {
        link::MenuEntry entry;
        entry.title = title;
        entry.isEnabled = true;
        entries.push_back(entry);
    }
    return entries;
}

/// A module that knows menus only.
class Module : private link::LinkClient::Delegate {
public:
    explicit Module(const RuntimeFolder& folder)
        : client(*this, {"test", {}, {}, link::kOldestVersion, link::kNewestVersion, folder}),
          menus(client, [this] { ++changes; }) {}

    void until(const std::function<bool()>& isDone) {
        while (!isDone()) {
            pollfd entry{client.fd(), POLLIN, 0};
            ASSERT_EQ(::poll(&entry, 1, 60'000), 1) << "it did not happen";
            client.dispatch();
        }
    }

    /// Title of each entry of the menu, or what is there instead.
    std::vector<std::string> titles(const std::string& name, Use use) {
        const MenuCache::KnownMenu* const known = menus.menu(selectionOf(name), use);
        if (known == nullptr) {
            return {"nothing"};
        }
        if (!known->isAnswer) {
            return {"no answer"};
        }
        std::vector<std::string> titles;
        for (const link::MenuEntry& entry : known->entries) {
            titles.push_back(entry.title);
        }
        return titles;
    }

    link::LinkClient client;
    MenuCache menus;
    int changes = 0; ///< how often menus should have been asked for again

private:
    void linkUp() override { menus.linkUp(); }
    void linkDown(const std::string& /*reason*/) override { menus.linkDown(); }
    void linkRefused(const std::string& /*reason*/) override {}
    void received(link::Message message) override {
        if (const auto* const reply = std::get_if<MenuReply>(&message)) {
            menus.received(*reply);
        } else if (const auto* const change = std::get_if<HostStateChange>(&message)) {
            menus.received(*change);
        } else if (const auto* const badges = std::get_if<Badges>(&message)) {
            menus.received(*badges);
        }
    }
    void woken() override {}
};

class MenuCacheTest : public ::testing::Test {
protected:
    using Titles = std::vector<std::string>;

    void SetUp() override {
        module_.client.open();
        connect();
    }

    void connect() {
        extension_.accept();
        extension_.hear<link::Hello>();
        extension_.say(link::Welcome{link::kNewestVersion, 1, "1"});
        module_.until([&] { return module_.client.isUp(); });
        module_.changes = 0;
    }

    /// The extension answers, and the module has heard it.
    void answer(const MenuReply& reply) {
        extension_.say(reply);
        hearAll();
    }
    void tellHostState(HostState state) {
        extension_.say(HostStateChange{state});
        hearAll();
    }
    void tellBadges(const Badges& badges) {
        extension_.say(badges);
        hearAll();
    }
    /// Until the module has heard all that was said.
    void hearAll() {
        const int before = module_.changes;
        pollfd entry{module_.client.fd(), POLLIN, 0};
        while (::poll(&entry, 1, 0) == 1) {
            module_.client.dispatch();
        }
        changes_ = module_.changes - before;
    }
    /// The module has said nothing that was not heard.
    void expectSilence() {
        ASSERT_TRUE(module_.client.send(link::Ping{99}));
        EXPECT_EQ(extension_.hear<link::Ping>().request, 99U);
    }

    static MenuReply menu(std::uint32_t request, std::uint32_t number, const Titles& titles) {
        return {request, MenuOutcome::made, number, "Corvid", entriesOf(titles)};
    }

    TemporaryFolder scratch_;
    RuntimeFolder folder_{scratch_ / "corvid"};
    link::PlayedExtension extension_{folder_};
    Module module_{folder_};
    int changes_ = 0; ///< during the last hearAll()
};

TEST_F(MenuCacheTest, AMenuIsAskedForWhenASelectionIsFirstHeardOfAndOnce) {
    EXPECT_EQ(module_.titles("a", Use::preparing), Titles{"nothing"});
    EXPECT_EQ(module_.changes, 1) << "who opens it meanwhile has to ask again";
    const auto request = extension_.hear<MenuRequest>();
    EXPECT_EQ(request.folder, "/v");
    EXPECT_EQ(request.selection, selectionOf("a").items);
    answer(menu(request.request, 5, {"Open", "Share"}));
    EXPECT_EQ(changes_, 1);
    for (const Use use : {Use::preparing, Use::opening, Use::preparing}) {
        EXPECT_EQ(module_.titles("a", use), (Titles{"Open", "Share"}));
    }
    expectSilence();
}

TEST_F(MenuCacheTest, AClickSendsTheVeryItemThatWasShown) {
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Open", "Share"}));
    const std::uint32_t shown = module_.menus.menu(selectionOf("a"), Use::opening)->number;

    // The file manager asks again while the menu is on the screen, and once more at the click. What
    // is known may be old by now: it is asked for anew, but stays until the answer has come.
    tellHostState(HostState::present);
    const std::uint32_t again = module_.menus.menu(selectionOf("a"), Use::preparing)->number;
    EXPECT_EQ(again, shown);
    const auto request = extension_.hear<MenuRequest>();
    module_.menus.click(again, 1);
    auto click = extension_.hear<Click>();
    EXPECT_EQ(click.menu, 5U);
    EXPECT_EQ(click.item, 1U);

    // And a click on what was shown stays one on that when another menu has come.
    answer(menu(request.request, 6, {"Nothing of that kind"}));
    EXPECT_EQ(changes_, 1);
    EXPECT_EQ(module_.menus.menu(selectionOf("a"), Use::preparing)->number, 6U);
    extension_.hear<MenuRequest>(); // the first click may have changed what it offers
    module_.menus.click(shown, 1);
    click = extension_.hear<Click>();
    EXPECT_EQ(click.menu, 5U);
    EXPECT_EQ(click.item, 1U);
}

TEST_F(MenuCacheTest, AnAnswerThatBringsNothingNewChangesNothing) {
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Open"}));
    module_.titles("a", Use::opening);
    tellHostState(HostState::present);
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 6, {"Open"}));
    EXPECT_EQ(changes_, 0);
    EXPECT_EQ(module_.menus.menu(selectionOf("a"), Use::preparing)->number, 5U)
        << "what is open is found again at the click";
}

TEST_F(MenuCacheTest, OpeningWaitsForTheAnswer) {
    // It is there when the menu is opened, but nobody has listened yet.
    extension_.say(menu(1, 5, {"Open"}));
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Open"});
    EXPECT_EQ(extension_.hear<MenuRequest>().request, 1U);
    EXPECT_EQ(module_.changes, 0) << "who was waited for has what there is";
}

TEST_F(MenuCacheTest, OpeningWaitsNoLongerThanItMay) {
    const auto begin = steady_clock::now();
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"no answer"});
    const auto first = steady_clock::now() - begin;
    EXPECT_GE(first, MenuCache::kPatience);
    EXPECT_LT(first, 20 * MenuCache::kPatience);
    // From then on for nothing: the time counts from when it was asked for.
    auto shortest = steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        const auto next = steady_clock::now();
        EXPECT_EQ(module_.titles("a", Use::opening), Titles{"no answer"});
        EXPECT_EQ(module_.titles("a", Use::preparing), Titles{"no answer"});
        shortest = std::min(shortest, steady_clock::now() - next);
    }
    EXPECT_LT(shortest, MenuCache::kPatience / 2);

    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Open"}));
    EXPECT_EQ(changes_, 1) << "the note is replaced";
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Open"});
    expectSilence();
}

TEST_F(MenuCacheTest, PreparingNeverWaits) {
    auto shortest = steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        const auto begin = steady_clock::now();
        EXPECT_EQ(module_.titles(std::to_string(i), Use::preparing), Titles{"nothing"});
        shortest = std::min(shortest, steady_clock::now() - begin);
    }
    EXPECT_LT(shortest, MenuCache::kPatience / 2);
}

TEST_F(MenuCacheTest, TheLastKnownMenuIsBetterThanNone) {
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Open"}));
    tellHostState(HostState::notAnswering);
    // Opening it does not wait: there is something to show.
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Open"});
    answer({extension_.hear<MenuRequest>().request, MenuOutcome::hostFailed, 0, "", {}});
    EXPECT_EQ(changes_, 0);
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Open"});
}

TEST_F(MenuCacheTest, AHostThatFailedIsAskedAgainByWhoOpensTheMenu) {
    module_.titles("a", Use::preparing);
    answer({extension_.hear<MenuRequest>().request, MenuOutcome::hostFailed, 0, "", {}});
    EXPECT_EQ(module_.titles("a", Use::preparing), Titles{"no answer"});
    expectSilence();
    extension_.say(menu(2, 5, {"Open"}));
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Open"});
}

TEST_F(MenuCacheTest, AChangedBadgeHasTheMenuAskedForAgain) {
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Stage"}));
    // Of another item, of one elsewhere, and an answer, which may be the badge that it had.
    tellBadges({"/v", {{"b", "synced", false}}});
    tellBadges({"/v/deeper", {{"a", "synced", false}}});
    tellBadges({"/", {{"a", "synced", false}}});
    tellBadges({"/v", {{"a", "synced", true}}});
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Stage"});
    expectSilence();

    // It may be open now, so it stays until the answer has come, and is asked for once.
    tellBadges({"/v", {{"b", "synced", false}, {"a", "finishedTransfer", false}}});
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Stage"});
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Stage"});
    answer(menu(extension_.hear<MenuRequest>().request, 6, {"Unstage"}));
    EXPECT_EQ(changes_, 1);
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Unstage"});
    expectSilence();
}

TEST_F(MenuCacheTest, AfterAClickOpeningWaitsForTheNewMenu) {
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Stage"}));
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Stage"});
    module_.menus.click(5, 0);
    extension_.hear<Click>();
    extension_.say(menu(3, 6, {"Unstage"}));
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Unstage"});
    EXPECT_EQ(extension_.hear<MenuRequest>().request, 3U);

    // When the badge changes while that is under way, once more.
    module_.menus.click(6, 0);
    extension_.hear<Click>();
    EXPECT_EQ(module_.titles("a", Use::preparing), Titles{"Unstage"});
    const auto early = extension_.hear<MenuRequest>();
    tellBadges({"/v", {{"a", "inProgress", false}}});
    answer(menu(early.request, 7, {"Unstage"}));
    extension_.say(menu(6, 8, {"Stage"}));
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Stage"});
}

TEST_F(MenuCacheTest, OutsideTheVolumeThereIsNoMenu) {
    module_.titles("a", Use::preparing);
    answer({extension_.hear<MenuRequest>().request, MenuOutcome::notOnVolume, 0, "", {}});
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"nothing"});
    expectSilence();
}

TEST_F(MenuCacheTest, MenusOfTheLastSelectionsAreKept) {
    const auto visit = [&](const std::string& name) {
        module_.titles(name, Use::preparing);
        answer(menu(extension_.hear<MenuRequest>().request, 5, {name}));
    };
    visit("first");
    for (std::size_t i = 1; i < MenuCache::kMaxMenus; ++i) {
        visit(std::to_string(i));
    }
    EXPECT_EQ(module_.titles("first", Use::preparing), Titles{"first"});
    expectSilence();
    // Of all, "1" is the one that was asked for longest ago.
    visit("last");
    EXPECT_EQ(module_.titles("first", Use::preparing), Titles{"first"});
    expectSilence();
    EXPECT_EQ(module_.titles("1", Use::preparing), Titles{"nothing"});
}

TEST_F(MenuCacheTest, MenusGoWithTheLink) {
    module_.titles("a", Use::preparing);
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Open"}));
    extension_.hangUp();
    module_.until([&] { return !module_.client.isUp(); });
    EXPECT_EQ(module_.changes, 3);
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"no answer"});
    module_.until([&] { return extension_.isCalled(); });
    connect();
    EXPECT_EQ(module_.titles("a", Use::preparing), Titles{"nothing"});
    answer(menu(extension_.hear<MenuRequest>().request, 5, {"Check In"}));
    EXPECT_EQ(module_.titles("a", Use::opening), Titles{"Check In"});
}

} // namespace
} // namespace corvid::gtk
