#include "HostKit/MenuCoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace corvid::hostkit {
namespace {

using ::testing::HasSubstr;

MenuItem entry(const std::string& title, const std::string& action) {
    MenuItem item;
    item.title = title;
    item.action = action;
    return item;
}

MenuItem parent(const std::string& title, std::vector<MenuItem> submenu) {
    MenuItem item;
    item.title = title;
    item.submenu = std::move(submenu);
    return item;
}

TEST(MenuCoding, everyFaultIsNamedWithItsRemedy) {
    struct Row {
        MenuItem item;
        const char* part;
    };
    MenuItem both = parent("Both", {entry("In", "in")});
    both.action = "both";
    const Row rows[] = {
        {entry("", "open"), "no title (its action is \"open\")"},
        {entry("Nothing", ""), "\"Nothing\" would do nothing"},
        {both, "both a submenu and the action \"both\""},
        {parent("Outer", {parent("Inner", {entry("x", "x")})}),
         "\"Inner\" is a submenu within a submenu"},
        {parent("Outer", {entry("", "x")}), "no title"},
        {entry("\xff", "x"), "not UTF-8"},
        {entry("x", "\xff"), "not UTF-8"},
    };
    for (const Row& row : rows) {
        const auto fault = menuFault({entry("Fine", "fine"), row.item});
        ASSERT_TRUE(fault.has_value()) << row.part;
        EXPECT_THAT(*fault, HasSubstr(row.part));
    }
}

TEST(MenuCoding, whatAnExtensionCanShowHasNoFault) {
    MenuItem title = entry("Only a title", "");
    title.isEnabled = false;
    EXPECT_EQ(menuFault({}), std::nullopt);
    EXPECT_EQ(menuFault({entry("Open", "open"), MenuItem::separator(), title,
                         parent("More", {entry("A", "a"), MenuItem::separator()})}),
              std::nullopt);
}

TEST(MenuCoding, numbersOfActionsAreFixed) {
    // Extensions outlive hosts and remember actions by number: these must never change.
    EXPECT_EQ(actionTag("a"), static_cast<std::int64_t>(0xaf63dc4c8601ec8cU >>
                                                        1)); // a published test vector of FNV-1a
    EXPECT_EQ(actionTag("stage"), 0x774edd56a2f1a246);
    EXPECT_EQ(actionTag("copy-path"), 0x56b6af76a43f6fde);
    std::set<std::int64_t> tags;
    for (int i = 0; i < 1000; ++i) {
        const std::int64_t tag = actionTag("action" + std::to_string(i));
        EXPECT_GT(tag, 0);
        EXPECT_TRUE(tags.insert(tag).second);
    }
}

TEST(MenuCoding, entriesTravelWithTitleTagAndAction) {
    MenuItem open = entry("Open", "open");
    open.isChecked = true;
    open.isEnabled = false;
    const auto sent = menuToSend({open, MenuItem::separator(), parent("More", {open})});
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0]->title, "Open");
    EXPECT_EQ(sent[0]->tag, actionTag("open"));
    EXPECT_EQ(sent[0]->action, Selector{"open"});
    EXPECT_EQ(sent[0]->state, MenuItemState::on);
    EXPECT_FALSE(sent[0]->isEnabled);
    EXPECT_TRUE(sent[1]->isSeparator);
    EXPECT_EQ(sent[2]->tag, 0);
    EXPECT_EQ(sent[2]->action, std::nullopt);
    ASSERT_EQ(sent[2]->submenu->items.size(), 1U);
    EXPECT_EQ(sent[2]->submenu->items[0]->tag, sent[0]->tag);
}

TEST(MenuCoding, clickIsKnownByActionAndNumberTogether) {
    corvid::MenuItem item;
    item.action = Selector{"open"};
    item.tag = actionTag("open");
    EXPECT_EQ(clickedAction(item), "open");
    item.tag = actionTag("close");
    EXPECT_EQ(clickedAction(item), std::nullopt);
    item.action.reset();
    EXPECT_EQ(clickedAction(item), std::nullopt);
}

} // namespace
} // namespace corvid::hostkit
