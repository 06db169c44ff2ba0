// The whole conversation about menus: the host's reply, the menu, a click, and what goes back to
// the host. Over the replies of this project (Tests/Data/menus) and, where the folder of extra data
// is there, over those made from the item graphs of compiled interface files.

#include "FinderFixture.h"
#include "Tests/Core/Archive/ArchiveComparison.h"
#include "Tests/Support/MenuArchiveFiles.h"

#include <filesystem>
#include <iterator>
#include <set>

namespace corvid {
namespace {

class MenuConversation : public FinderFixture,
                         public testing::WithParamInterface<MenuArchiveFiles> {
protected:
    void SetUp() override {
        files_ = GetParam().files();
        if (files_.empty()) {
            GTEST_SKIP() << "CORVID_EXTRA_TEST_DATA is not set";
        }
        finder().setSelectedItemURLs(std::vector<URL>{item("a.txt")});
        controller_ = CVMAFinderSync::create();
        ASSERT_NE(controller_->menuIcon(), nullptr);
    }

    // The items of a reply, as they came.
    static std::vector<std::shared_ptr<MenuItem>> offered(const Bytes& reply) {
        const auto root = unarchivedObject(reply);
        std::vector<std::shared_ptr<MenuItem>> items;
        for (const Value& element : root->asArray()->elements) {
            items.push_back(element.asMenuItem());
        }
        return items;
    }

    static std::vector<std::shared_ptr<MenuItem>> subItems(const MenuItem& item) {
        return item.submenu != nullptr ? item.submenu->items
                                       : std::vector<std::shared_ptr<MenuItem>>();
    }

    // Adds to `remembered_` what the controller has to remember of a reply, and says whether some
    // tag of it carries several actions.
    bool remember(const std::vector<std::shared_ptr<MenuItem>>& items) {
        std::map<std::int64_t, std::set<std::string>> actions;
        const auto add = [&](const MenuItem& item) {
            if (item.action) {
                remembered_[item.tag] = item.action->name;
                actions[item.tag].insert(item.action->name);
            }
        };
        for (const auto& item : items) {
            for (const auto& below : subItems(*item)) {
                add(*below);
            }
            add(*item);
        }
        return std::ranges::any_of(actions, [](const auto& tag) { return tag.second.size() > 1; });
    }

    // The selector that has to go back with a click on an item with this tag.
    std::optional<Selector> expectedSelector(std::int64_t tag) const {
        const auto found = remembered_.find(tag);
        return found != remembered_.end() ? std::optional(Selector{found->second}) : std::nullopt;
    }

    // What the controller changes about an item: its picture, its target, and its action.
    static void change(MenuItem& item, const std::optional<Selector>& action) {
        std::vector<Field> kept;
        if (item.otherFields != nullptr) {
            const bool keepsItsAction = action == item.action;
            std::ranges::copy_if(
                *item.otherFields, std::back_inserter(kept), [&](const Field& field) {
                    return field.key != "NSImage" && (field.key != "NSAction" || keepsItsAction);
                });
        }
        item.otherFields = std::make_shared<const std::vector<Field>>(std::move(kept));
        item.action = action;
        item.target.reset();
    }

    // What has to come back for a click on `item`, which is changed into it.
    std::string expected(const std::shared_ptr<MenuItem>& item, bool isRewiredBelow) const {
        change(*item, expectedSelector(item->tag));
        item->menu.reset();
        if (isRewiredBelow) {
            for (const auto& below : subItems(*item)) {
                change(*below, Selector{"performAction:"});
            }
        }
        return completeDescription(Value::menuItem(item));
    }

    // Clicks on `shown` and looks at what comes back, which `sent` was.
    void expectBack(const std::shared_ptr<MenuItem>& shown, const std::shared_ptr<MenuItem>& sent,
                    bool isRewiredBelow) {
        SCOPED_TRACE(sent->title);
        EXPECT_EQ(shown->action, Selector{"performAction:"});
        EXPECT_EQ(shown->target.lock(), controller_);
        EXPECT_EQ(shown->image, controller_->menuIcon());
        controller_->performAction(shown);
        const Value payload = lastPayload(CVMAMessageID::performAction);
        const Value* action = payload.asDictionary()->find("action");
        ASSERT_NE(action, nullptr);
        ASSERT_NE(action->asMenuItem(), nullptr);
        EXPECT_EQ(action->asMenuItem()->action, expectedSelector(sent->tag));
        EXPECT_EQ(completeDescription(*action), expected(sent, isRewiredBelow));
    }

    std::shared_ptr<Menu> menu() { return controller_->menu(FIMenuKind::contextualMenuForItems); }

    std::vector<std::filesystem::path> files_;
    std::shared_ptr<CVMAFinderSync> controller_;
    std::map<std::int64_t, std::string> remembered_;
};

TEST_P(MenuConversation, EachClickedItemComesBackWithItsKeysAndTheLastSelectorOfItsTag) {
    std::size_t clicks = 0;
    std::size_t menusWithSharedTags = 0;
    // One controller for all: what it remembers of earlier menus stays.
    for (const auto& file : files_) {
        SCOPED_TRACE(file);
        const Bytes reply = readTestFile(file);
        setReply(CVMAMessageID::requestActions, reply);
        menusWithSharedTags += remember(offered(reply)) ? 1U : 0U;

        const auto shown = menu();
        const auto sent = offered(reply);
        const auto sentAgain =
            offered(reply); // For what lies below, which the first is changed in.
        ASSERT_EQ(shown->items.size(), sent.size());
        for (std::size_t i = 0; i < sent.size(); ++i) {
            // Before what lies below it: a click puts the selector back on its item.
            expectBack(shown->items[i], sent[i], true);
            ++clicks;
            const auto shownBelow = subItems(*shown->items[i]);
            const auto sentBelow = subItems(*sentAgain[i]);
            ASSERT_EQ(shownBelow.size(), sentBelow.size());
            for (std::size_t j = 0; j < sentBelow.size(); ++j) {
                expectBack(shownBelow[j], sentBelow[j], false);
                ++clicks;
            }
        }
    }
    EXPECT_GE(menusWithSharedTags, files_.size() / 2);
    EXPECT_GT(clicks, 5 * files_.size()) << "the items and what lies below them";
}

INSTANTIATE_TEST_SUITE_P(Menus, MenuConversation, testing::ValuesIn(kMenuArchives),
                         nameOfMenuArchives);

} // namespace
} // namespace corvid
