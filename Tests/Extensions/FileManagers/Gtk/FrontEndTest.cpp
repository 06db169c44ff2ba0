// A module without its toolkit, with an extension that the test plays.

#include "Extensions/FileManagers/Gtk/FrontEnd.h"
#include "Tests/Extensions/FileManagers/Link/PlayedExtension.h"
#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>

#include <memory>
#include <string>
#include <vector>

namespace corvid::gtk {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using Use = MenuCache::Use;

class FrontEndTest : public ::testing::Test {
protected:
    explicit FrontEndTest(std::uint16_t oldest = link::kOldestVersion,
                          std::uint16_t newest = link::kNewestVersion)
        : frontEnd_({"test", {}, {}, oldest, newest, folder_},
                    {[this] { ++redrawsWanted_; }, [this] { ++menusChanged_; },
                     [this](const std::string& folder, Listing which) {
                         listed_.push_back((which == Listing::all ? "all of " : "") + folder);
                     },
                     true}) {
        extension_.accept();
    }

    void connect(const std::string& volume = "/v") {
        extension_.hear<link::Hello>();
        extension_.say(link::Welcome{link::kNewestVersion, 1, "1"});
        extension_.say(link::Volume{volume});
        hearAll();
    }
    /// Until the module has done what there is to do.
    void hearAll() {
        pollfd entry{frontEnd_.fd(), POLLIN, 0};
        while (::poll(&entry, 1, 0) == 1) {
            frontEnd_.dispatch();
        }
    }
    /// The names that were asked for, as one question.
    std::vector<std::string> asked() {
        std::vector<std::string> names;
        for (const link::AskedItem& item : extension_.hear<link::Ask>().items) {
            names.push_back(item.name);
        }
        return names;
    }
    void tell(const std::string& name, const std::string& badge, bool isAnswer) {
        extension_.say(link::Badges{"/v", {{name, badge, isAnswer}}});
        hearAll();
    }
    /// Takes all that is to be drawn anew, and draws it: paths, with the badge behind those that
    /// are given one.
    std::vector<std::string> redraw() {
        std::vector<std::string> paths;
        const auto now = RedrawQueue::Clock::now();
        for (auto item = frontEnd_.redraws().take(now); !item.path.empty();
             item = frontEnd_.redraws().take(now)) {
            if (item.reason == RedrawQueue::Reason::firstBadge) {
                paths.push_back(item.path + " " + frontEnd_.badgeToAdd(item.path));
            } else {
                frontEnd_.badgeWillBeAskedFor(item.path);
                frontEnd_.badge(item.path, false);
                paths.push_back(item.path);
            }
        }
        hearAll();
        return paths;
    }
    static MenuSelection selectionOf(const std::string& path) {
        return {path.substr(0, path.rfind('/')), {{path, false}}, false};
    }

    TemporaryFolder scratch_;
    RuntimeFolder folder_{scratch_ / "corvid"};
    link::PlayedExtension extension_{folder_};
    int redrawsWanted_ = 0;
    int menusChanged_ = 0;
    std::vector<std::string> listed_;
    FrontEnd frontEnd_;
};

TEST_F(FrontEndTest, ItemsAreAskedForTogetherAndDrawnAnewWhenTheAnswerComes) {
    connect();
    frontEnd_.begin("/v");
    EXPECT_EQ(frontEnd_.badge("/v/a", false), "");
    EXPECT_EQ(frontEnd_.badge("/v/b", true), "");
    hearAll();
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/v");
    EXPECT_THAT(asked(), ElementsAre("a", "b"));
    tell("a", "synced", true);
    EXPECT_EQ(redrawsWanted_, 1);
    EXPECT_THAT(redraw(), ElementsAre("/v/a synced"));
    tell("b", "error", true);
    tell("a", "inProgress", false);
    // Once more, lest it keep the badge that it was given when it was not asked for.
    EXPECT_THAT(redraw(), ElementsAre("/v/b error", "/v/a", "/v/a"));
    tell("a", "synced", false);
    EXPECT_THAT(redraw(), ElementsAre("/v/a"));
    EXPECT_EQ(frontEnd_.badge("/v/b", true), "error");
    // That last call was the file manager's own, so the item has changed; the ones before were
    // ours.
    hearAll();
    EXPECT_THAT(asked(), ElementsAre("b"));
}

TEST_F(FrontEndTest, WhatWasDrawnBeforeItsFolderWasBegunIsDrawnAnew) {
    connect();
    frontEnd_.badge("/v/a", false);
    frontEnd_.badge("/v/b", false);
    hearAll();
    frontEnd_.begin("/v");
    EXPECT_THAT(redraw(), UnorderedElementsAre("/v/a", "/v/b"));
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/v");
    EXPECT_THAT(asked(), UnorderedElementsAre("a", "b"));
}

TEST_F(FrontEndTest, WhatWasDrawnBeforeTheExtensionRanIsAskedForThen) {
    frontEnd_.begin("/v");
    frontEnd_.badge("/v/a", false);
    connect();
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/v");
    EXPECT_THAT(asked(), ElementsAre("a"));
}

TEST_F(FrontEndTest, FoldersOfTheVolumeAreListedOnceItIsKnown) {
    frontEnd_.begin("/v");
    frontEnd_.begin("/other");
    connect();
    EXPECT_THAT(listed_, ElementsAre("/v"));
    frontEnd_.begin("/v/a");
    frontEnd_.begin("/other/a");
    EXPECT_THAT(listed_, ElementsAre("/v", "/v/a"));
}

TEST_F(FrontEndTest, AllOfAFolderIsListedThatAnotherVolumeHolds) {
    connect("/usual");
    frontEnd_.begin("/v/a");
    frontEnd_.begin("/usual/a");
    frontEnd_.badge("/v/a/item", false);
    EXPECT_THAT(listed_, ElementsAre("/usual/a"));
    extension_.say(link::Volume{"/v"});
    hearAll();
    EXPECT_THAT(listed_, ElementsAre("/usual/a", "all of /v/a"));
    frontEnd_.expect("/v/a", {{"item", false}});
    hearAll();
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/usual/a");
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/v/a");
    EXPECT_THAT(asked(), ElementsAre("item"));
    // And nothing more when it is told again, as by an extension that was started anew.
    extension_.say(link::Volume{"/v"});
    hearAll();
    EXPECT_THAT(listed_, ElementsAre("/usual/a", "all of /v/a", "/v/a"));
}

TEST_F(FrontEndTest, WhatIsExpectedIsAskedForBeforeTheFileManagerAsks) {
    connect();
    frontEnd_.begin("/v");
    frontEnd_.expect("/v", {{"a", false}, {"b", true}});
    frontEnd_.expect("/other", {{"c", false}});
    hearAll();
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/v");
    EXPECT_THAT(asked(), ElementsAre("a", "b"));
    tell("a", "synced", true);
    tell("b", "synced", true);
    EXPECT_THAT(redraw(), ElementsAre("/v/a synced", "/v/b synced"));
    // The file manager's first question is no sign of a change, and is answered at once.
    EXPECT_EQ(frontEnd_.badge("/v/a", false), "synced");
    EXPECT_THAT(redraw(), ElementsAre());
    frontEnd_.badge("/v/a", false);
    hearAll();
    EXPECT_THAT(asked(), ElementsAre("a"));
    // What is known already need not be asked for.
    frontEnd_.expect("/v", {{"b", true}});
    EXPECT_THAT(redraw(), ElementsAre());
}

TEST_F(FrontEndTest, ABadgeThatChangesBeforeTheFileManagerAsksReplacesTheOneThatWasGiven) {
    connect();
    frontEnd_.begin("/v");
    frontEnd_.expect("/v", {{"a", false}, {"b", false}});
    hearAll();
    tell("a", "synced", true);
    tell("b", "synced", true);
    EXPECT_THAT(redraw(), ElementsAre("/v/a synced", "/v/b synced"));
    tell("a", "error", false);
    tell("b", "", false);
    EXPECT_EQ(frontEnd_.badge("/v/a", false), "error");
    EXPECT_EQ(frontEnd_.badge("/v/b", false), "");
    EXPECT_THAT(redraw(), ElementsAre("/v/a", "/v/b"));
    EXPECT_THAT(redraw(), ElementsAre());
    // One that goes before it is given is not given.
    frontEnd_.expect("/v", {{"c", false}});
    hearAll();
    tell("c", "synced", true);
    tell("c", "", false);
    EXPECT_THAT(redraw(), ElementsAre("/v/c "));
}

TEST_F(FrontEndTest, OutsideTheVolumeThereIsNothing) {
    connect();
    menusChanged_ = 0;
    frontEnd_.begin("/vv");
    EXPECT_EQ(frontEnd_.badge("/vv/a", false), "");
    EXPECT_EQ(frontEnd_.menu(selectionOf("/vv/a"), Use::opening), nullptr);
    const MenuSelection both{"/v", {{"/v/a", false}, {"/vv/a", false}}, false};
    EXPECT_EQ(frontEnd_.menu(both, Use::opening), nullptr);
    hearAll();
    frontEnd_.begin("/v/x");
    EXPECT_EQ(extension_.hear<link::Begin>().folder, "/v/x") << "the first that was said";
    EXPECT_EQ(menusChanged_, 0);
}

TEST_F(FrontEndTest, MenusAreAskedForAgainOnceTheVolumeIsKnown) {
    EXPECT_EQ(frontEnd_.menu(selectionOf("/v/a"), Use::opening), nullptr);
    connect();
    EXPECT_GT(menusChanged_, 0);
    menusChanged_ = 0;
    extension_.say(link::Volume{"/other"});
    hearAll();
    EXPECT_EQ(menusChanged_, 1);
    EXPECT_EQ(frontEnd_.menu(selectionOf("/v/a"), Use::opening), nullptr);
}

TEST_F(FrontEndTest, AModuleThatTheExtensionRefusesSaysWhatToDo) {
    extension_.hear<link::Hello>();
    extension_.say(link::Refused{7, 9, "The file manager is older than the extension."});
    extension_.hangUp();
    hearAll();
    const MenuCache::KnownMenu* const menu = frontEnd_.menu(selectionOf("/v/a"), Use::preparing);
    ASSERT_NE(menu, nullptr);
    EXPECT_EQ(menu->title, "Restart the file manager");
    EXPECT_FALSE(menu->isAnswer);
    EXPECT_THAT(menu->entries, ElementsAre());
    EXPECT_EQ(menusChanged_, 1) << "Nautilus keeps what it was told before";
    EXPECT_EQ(frontEnd_.badge("/v/a", false), "");
}

} // namespace
} // namespace corvid::gtk
