#include "FinderFixture.h"

namespace corvid {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Menus : public FinderFixture {
protected:
    Menus() {
        select({item("a.txt")});
        happened();
    }
    void select(std::vector<URL> urls) { finder().setSelectedItemURLs(std::move(urls)); }

    std::shared_ptr<Menu> menu() { return controller_->menu(FIMenuKind::contextualMenuForItems); }

    std::optional<bool> operatingOnParent() {
        menu();
        return lastFlag(CVMAMessageID::requestActions, "operatingOnParent");
    }

    /// The menu item that the host got back at the last click; an empty one for none.
    std::shared_ptr<MenuItem> performed() {
        auto sent = lastField(CVMAMessageID::performAction, "action").asMenuItem();
        EXPECT_NE(sent, nullptr);
        return sent != nullptr ? sent : std::make_shared<MenuItem>();
    }

    void expectRewired(const MenuItem& menuItem) {
        EXPECT_EQ(menuItem.target.lock(), controller_) << menuItem.title;
        EXPECT_EQ(menuItem.action, Selector{"performAction:"}) << menuItem.title;
        EXPECT_EQ(menuItem.image, controller_->menuIcon()) << menuItem.title;
    }

    std::shared_ptr<CVMAFinderSync> controller_ = CVMAFinderSync::create();
};
using MenusDeath = Menus;

TEST_F(Menus, EveryKindGivesTheSameMenu) {
    hostAnswers(CVMAMessageID::requestActions, menuReply({entry("Share", 1, "share:")}));
    menu();
    const auto expected = happened();
    for (const FIMenuKind kind :
         {FIMenuKind::contextualMenuForContainer, FIMenuKind::contextualMenuForSidebar,
          FIMenuKind::toolbarItemMenu}) {
        const auto made = controller_->menu(kind);
        EXPECT_EQ(made->title, "Corvid");
        EXPECT_EQ(made->items.size(), 1U);
        EXPECT_EQ(happened(), expected);
    }
}

TEST_F(Menus, OperatesOnTheParentWhenTheFirstSelectedItemIsTheTarget) {
    const std::optional<URL> folder = URL::fileURL("/Volumes/Corvid/Folder", true);
    const std::optional<URL> other = item("b.txt");
    struct Row {
        const char* what;
        std::optional<URL> targeted;
        std::vector<URL> selected;
        bool expected;
    };
    const Row rows[] = {
        {"nothing selected, nothing targeted", std::nullopt, {}, true},
        {"nothing selected, a target", folder, {}, false},
        {"a selection, no target", std::nullopt, {*folder}, false},
        {"the target selected", folder, {*folder}, true},
        {"the target selected first", folder, {*folder, *other}, true},
        {"the target selected second", folder, {*other, *folder}, false},
        {"another item selected", folder, {*other}, false},
        // Compared as URLs, not by their paths, which are the same.
        {"the target selected as if it were no folder", folder, {item("Folder")}, false},
        {"a target that is no folder selected as if it were one", item("Folder"), {*folder}, false},
    };
    for (const Row& row : rows) {
        finder().setTargetedURL(row.targeted);
        select(row.selected);
        EXPECT_EQ(operatingOnParent(), row.expected) << row.what;
    }
}

TEST_F(Menus, TheSelectionIsLoggedAndSent) {
    select({item("a b.txt"), item("c.txt")});
    menu();
    EXPECT_THAT(reporting_.messages(),
                Contains("<UI> Requesting actions for items = [file:///Volumes/Corvid/a%20b.txt, "
                         "file:///Volumes/Corvid/c.txt] and is operatingOnParent = false"));
    EXPECT_THAT(lastURLs(CVMAMessageID::requestActions, "paths"),
                ElementsAre(item("a b.txt"), item("c.txt")));
}

TEST_F(Menus, AnEmptySelectionIsPassedOn) {
    select({});
    menu();
    EXPECT_THAT(reporting_.messages(),
                Contains("<UI> Requesting actions for items = [] and is operatingOnParent = true"));
    EXPECT_THAT(lastURLs(CVMAMessageID::requestActions, "paths"), IsEmpty());
}

TEST_F(Menus, AnEmptyOrMissingAnswerGivesAnEmptyMenu) {
    hostAnswers(CVMAMessageID::requestActions, menuReply({}));
    EXPECT_EQ(menu()->title, "Corvid");
    EXPECT_THAT(menu()->items, IsEmpty());
    removePeer(kHostPort);
    ASSERT_NE(menu(), nullptr);
    EXPECT_THAT(menu()->items, IsEmpty());
}

TEST_F(Menus, ItemsAndTheirFirstSubmenuComeBackHereAndNothingDeeper) {
    auto deepest = entry("Deepest", 31, "deepest:");
    auto deep = entry("Deep", 3, "deep:", {deepest});
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("Share", 1, "share:"), entry("More", 2, "submenuAction:", {deep}),
                           entry("No Action", 4, nullptr)}));
    const auto made = menu();
    ASSERT_EQ(made->items.size(), 3U);
    ASSERT_NE(controller_->menuIcon(), nullptr);
    for (const auto& shown : made->items) {
        expectRewired(*shown);
    }
    const auto& shownDeep = made->items[1]->submenu->items.at(0);
    expectRewired(*shownDeep);

    const auto& shownDeepest = shownDeep->submenu->items.at(0);
    EXPECT_EQ(shownDeepest->action, Selector{"deepest:"});
    EXPECT_EQ(shownDeepest->target.lock(), nullptr);
    EXPECT_EQ(shownDeepest->image, nullptr);

    EXPECT_EQ(controller_->actionSelector().size(), 3U);
    EXPECT_EQ(controller_->actionSelector().at(1), Selector{"share:"});
    EXPECT_EQ(controller_->actionSelector().at(2), Selector{"submenuAction:"});
    EXPECT_EQ(controller_->actionSelector().at(3), Selector{"deep:"});
}

TEST_F(Menus, WithoutAMenuIconItemsCarryNone) {
    platform_.bundle.removeImage("MorrowFilesAppIcon");
    const auto controller = CVMAFinderSync::create();
    hostAnswers(CVMAMessageID::requestActions, menuReply({entry("Share", 1, "share:")}));
    EXPECT_EQ(controller->menu(FIMenuKind::contextualMenuForItems)->items.at(0)->image, nullptr);
}

TEST_F(Menus, OfTwoSelectorsUnderOneTagTheLaterIsRemembered) {
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("A", 7, "first:"), entry("B", 7, "second:")}));
    menu();
    EXPECT_EQ(controller_->actionSelector().at(7), Selector{"second:"});

    // A sub-item comes before its parent.
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("Parent", 8, "parent:", {entry("Child", 8, "child:")})}));
    menu();
    EXPECT_EQ(controller_->actionSelector().at(8), Selector{"parent:"});
    // What earlier menus left stays.
    EXPECT_EQ(controller_->actionSelector().at(7), Selector{"second:"});
}

TEST_F(Menus, AnItemWithoutActionLeavesWhatItsTagHad) {
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("A", 7, "first:"), entry("B", 7, nullptr)}));
    menu();
    EXPECT_EQ(controller_->actionSelector().at(7), Selector{"first:"});
}

TEST_F(Menus, AClickRestoresTheSelectorAndSendsTheItemWithTheSelection) {
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("Share", 5, "share:"), entry("Delete", 6, "remove:")}));
    const auto shown = menu();
    select({item("x.txt"), item("y z.txt")});
    happened();
    controller_->performAction(shown->items[1]);

    EXPECT_EQ(shown->items[1]->action, Selector{"remove:"});
    const auto lines = happened();
    EXPECT_EQ(lines.at(0), "log 6 <UI> Performing action with tag = 6 on items = "
                           "[file:///Volumes/Corvid/x.txt, file:///Volumes/Corvid/y%20z.txt]");
    EXPECT_EQ(lines.at(1), "log 5 <UI> MessagePort: performing action = Delete for paths = "
                           "[file:///Volumes/Corvid/x.txt, file:///Volumes/Corvid/y%20z.txt]");
    EXPECT_EQ(performed()->title, "Delete");
    EXPECT_EQ(performed()->tag, 6);
    EXPECT_EQ(performed()->action, Selector{"remove:"});
    EXPECT_THAT(lastURLs(CVMAMessageID::performAction, "path"),
                ElementsAre(item("x.txt"), item("y z.txt")));
}

/// Notes what it is asked, in order; its answers are the fake's.
class AskedFinder final : public FIFinderSyncController {
public:
    explicit AskedFinder(FakeFinderSyncController& fake) : fake_(fake) {}

    void setDirectoryURLs(const std::vector<URL>& urls) override { fake_.setDirectoryURLs(urls); }
    void setBadgeImage(std::shared_ptr<Image> image, const std::optional<std::string>& label,
                       std::string_view identifier) override {
        fake_.setBadgeImage(std::move(image), label, identifier);
    }
    void setBadgeIdentifier(std::string_view identifier, const URL& url) override {
        fake_.setBadgeIdentifier(identifier, url);
    }
    std::optional<URL> targetedURL() override {
        asked.emplace_back("targetedURL");
        return fake_.targetedURL();
    }
    std::optional<std::vector<URL>> selectedItemURLs() override {
        asked.emplace_back("selectedItemURLs");
        return fake_.selectedItemURLs();
    }

    std::vector<std::string> asked;

private:
    FakeFinderSyncController& fake_;
};

TEST_F(Menus, TheTargetIsReadBeforeTheSelectionAndEachOnce) {
    AskedFinder asked(finder());
    FIFinderSyncController::setDefaultController(&asked);
    menu();
    EXPECT_THAT(asked.asked, ElementsAre("targetedURL", "selectedItemURLs"));
    asked.asked.clear();
    controller_->performAction(entry("Share", 5, "share:"));
    EXPECT_THAT(asked.asked, ElementsAre("selectedItemURLs"));
    FIFinderSyncController::setDefaultController(&finder());
}

TEST_F(Menus, SeparatorsAreMadeToComeBackLikeEveryOtherItem) {
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("Share", 1, "share:"), MenuItem::separator(),
                           entry("More", 2, nullptr, {MenuItem::separator()})}));
    const auto made = menu();
    ASSERT_EQ(made->items.size(), 3U);
    EXPECT_TRUE(made->items[1]->isSeparator);
    expectRewired(*made->items[1]);
    ASSERT_NE(made->items[2]->submenu, nullptr);
    ASSERT_EQ(made->items[2]->submenu->items.size(), 1U);
    EXPECT_TRUE(made->items[2]->submenu->items[0]->isSeparator);
    expectRewired(*made->items[2]->submenu->items[0]);
}

TEST_F(Menus, AnItemOfAnOlderMenuStillFindsItsSelector) {
    hostAnswers(CVMAMessageID::requestActions, menuReply({entry("Old", 5, "old:")}));
    const auto old = menu();
    hostAnswers(CVMAMessageID::requestActions, menuReply({entry("New", 6, "new:")}));
    menu();
    controller_->performAction(old->items.at(0));
    EXPECT_EQ(performed()->action, Selector{"old:"});
}

TEST_F(Menus, AnItemWhoseTagWasNeverRecordedIsSentWithoutAction) {
    controller_->performAction(entry("Stranger", -9, "stranger:"));
    EXPECT_THAT(reporting_.messages(), Contains("<UI> Performing action with tag = -9 on items = "
                                                "[file:///Volumes/Corvid/a.txt]"));
    EXPECT_FALSE(performed()->action);
}

TEST_F(Menus, ASenderThatIsNoMenuItemIsIgnored) {
    happened();
    controller_->performAction(std::make_shared<Menu>());
    controller_->performAction(nullptr);
    EXPECT_THAT(happened(), IsEmpty());
}

TEST_F(MenusDeath, AMenuWithoutASelectionListStopsTheProcess) {
    finder().setSelectedItemURLs(std::nullopt);
    EXPECT_DEATH(menu(), "fatal: a menu was asked for without a selection");
}

TEST_F(MenusDeath, AClickWithoutASelectionListStopsTheProcess) {
    finder().setSelectedItemURLs(std::nullopt);
    EXPECT_DEATH(controller_->performAction(entry("Share", 1, "share:")),
                 "fatal: an action was performed without a selection");
}

TEST_F(MenusDeath, TheLineBeforeTheStopHasNoList) {
    printLogLines();
    finder().setSelectedItemURLs(std::nullopt);
    finder().setTargetedURL(std::nullopt);
    EXPECT_DEATH(menu(), "<UI> Requesting actions for items =  and is operatingOnParent = true\\|");
    EXPECT_DEATH(controller_->performAction(entry("Share", 1, "share:")),
                 "<UI> Performing action with tag = 1 on items = \\|");
}

} // namespace
} // namespace corvid
