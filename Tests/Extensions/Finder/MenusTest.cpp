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

    bool operatingOnParent() {
        menu();
        return *lastPayload(CVMAMessageID::requestActions)
                    .asDictionary()
                    ->find("operatingOnParent")
                    ->asBoolean();
    }

    /// The menu item that the host got back at the last click.
    std::shared_ptr<MenuItem> performed() {
        return lastPayload(CVMAMessageID::performAction)
            .asDictionary()
            ->find("action")
            ->asMenuItem();
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
    const Value payload = lastPayload(CVMAMessageID::requestActions);
    const Array* paths = payload.asDictionary()->find("paths")->asArray();
    ASSERT_EQ(paths->elements.size(), 2U);
    EXPECT_EQ(*paths->elements[0].asURL(), item("a b.txt"));
    EXPECT_EQ(*paths->elements[1].asURL(), item("c.txt"));
}

TEST_F(Menus, AnEmptySelectionIsPassedOn) {
    select({});
    menu();
    EXPECT_THAT(reporting_.messages(),
                Contains("<UI> Requesting actions for items = [] and is operatingOnParent = true"));
    EXPECT_THAT(lastPayload(CVMAMessageID::requestActions)
                    .asDictionary()
                    ->find("paths")
                    ->asArray()
                    ->elements,
                IsEmpty());
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
    const Value payload = lastPayload(CVMAMessageID::performAction);
    EXPECT_EQ(payload.asDictionary()->find("path")->asArray()->elements.size(), 2U);
    EXPECT_EQ(payload.asDictionary()->find("paths"), nullptr);
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
    // The line is written before the process stops; the dying process shows it.
    class PrintingService final : public LoggingService {
        void log(std::string_view message, int) override {
            std::fprintf(stderr, "%.*s|\n", static_cast<int>(message.size()), message.data());
        }
    };
    reporting_.addLoggingService(std::make_shared<PrintingService>());
    finder().setSelectedItemURLs(std::nullopt);
    finder().setTargetedURL(std::nullopt);
    EXPECT_DEATH(menu(), "<UI> Requesting actions for items =  and is operatingOnParent = true\\|");
    EXPECT_DEATH(controller_->performAction(entry("Share", 1, "share:")),
                 "<UI> Performing action with tag = 1 on items = \\|");
}

} // namespace
} // namespace corvid
