#import "Platform/Mac/AppKitMenu.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/OpaqueObject.h"
#include "Platform/Mac/FoundationValues.h"
#include "Platform/Mac/MacBundle.h"
#include "Platform/Mac/MacImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// GNUstep's own menu items hold all of this but two things, a title's attributes and that an item
// is hidden; here the doubles beside GNUstep add those.

namespace corvid {
namespace {

std::shared_ptr<MenuItem> plainItem(std::string title) {
    auto item = std::make_shared<MenuItem>();
    item->title = std::move(title);
    return item;
}

std::shared_ptr<Menu> menuOf(std::vector<std::shared_ptr<MenuItem>> items) {
    auto menu = std::make_shared<Menu>();
    menu->title = "Corvid";
    for (auto& item : items) {
        menu->add(std::move(item));
    }
    return menu;
}

NSMenuItem* onlyItem(NSMenu* menu) {
    EXPECT_EQ([menu numberOfItems], 1);
    return [menu itemAtIndex:0];
}

/// There and back again.
std::shared_ptr<MenuItem> returned(const std::shared_ptr<MenuItem>& item,
                                   const std::shared_ptr<Image>& menuIcon = nullptr) {
    return portableMenuItem(onlyItem(appKitMenu(*menuOf({item}), nullptr, nil)), menuIcon);
}

class Target : public Object {};

TEST(AppKitMenuTest, MakesAMenuWithItsTitleAndItems) {
    const auto menu = menuOf({plainItem("One"), MenuItem::separator(), plainItem("Two")});
    NSMenu* made = appKitMenu(*menu, nullptr, nil);
    EXPECT_EQ(utf8String([made title]), "Corvid");
    EXPECT_TRUE([made autoenablesItems]);
    ASSERT_EQ([made numberOfItems], 3);
    EXPECT_EQ(utf8String([[made itemAtIndex:0] title]), "One");
    EXPECT_TRUE([[made itemAtIndex:1] isSeparatorItem]);
    EXPECT_EQ(utf8String([[made itemAtIndex:2] title]), "Two");

    menu->autoenablesItems = false;
    EXPECT_FALSE([appKitMenu(*menu, nullptr, nil) autoenablesItems]);
    EXPECT_EQ([appKitMenu(Menu(), nullptr, nil) numberOfItems], 0);
}

TEST(AppKitMenuTest, TheShellStandsForTheControllerAndForNobodyElse) {
    const auto controller = std::make_shared<Target>();
    const auto stranger = std::make_shared<Target>();
    id shell = [[NSObject new] autorelease];
    const auto menu = menuOf({plainItem("ours"), plainItem("a stranger's"), plainItem("nobody's")});
    menu->items[0]->target = controller;
    menu->items[0]->action = Selector{"performAction:"};
    menu->items[1]->target = stranger;

    NSMenu* made = appKitMenu(*menu, controller.get(), shell);
    EXPECT_EQ([[made itemAtIndex:0] target], shell);
    EXPECT_TRUE(sel_isEqual([[made itemAtIndex:0] action], @selector(performAction:)));
    EXPECT_EQ([[made itemAtIndex:1] target], nil);
    EXPECT_EQ([[made itemAtIndex:2] target], nil);
}

TEST(AppKitMenuTest, AnItemWithASubmenuKeepsTheTargetAndActionThatItWasGiven) {
    const auto controller = std::make_shared<Target>();
    id shell = [[NSObject new] autorelease];
    const auto item = plainItem("More");
    item->setSubmenu(menuOf({plainItem("Less")}));
    for (const auto& each : {item, item->submenu->items[0]}) {
        each->target = controller;
        each->action = Selector{"performAction:"};
    }
    NSMenuItem* made = onlyItem(appKitMenu(*menuOf({item}), controller.get(), shell));
    NSMenuItem* below = onlyItem([made submenu]);
    for (NSMenuItem *each in [NSArray arrayWithObjects:made, below, nil]) {
        EXPECT_EQ([each target], shell);
        EXPECT_TRUE(sel_isEqual([each action], @selector(performAction:)));
    }
}

TEST(AppKitMenuTest, LosesNothingThatAnItemHolds) {
    const auto item = plainItem("Schließen …");
    item->keyEquivalent = "k";
    item->keyEquivalentModifierMask = (1 << 20) | (1 << 17);
    item->tag = -4200000000;
    item->state = MenuItemState::mixed;
    item->indentationLevel = 3;
    item->isEnabled = false;
    item->isHidden = true;
    item->isAlternate = true;
    item->toolTip = "what it does";
    item->action = Selector{"close:with:"};

    const auto back = returned(item);
    EXPECT_EQ(back->title, item->title);
    EXPECT_EQ(back->keyEquivalent, item->keyEquivalent);
    EXPECT_EQ(back->keyEquivalentModifierMask, item->keyEquivalentModifierMask);
    EXPECT_EQ(back->tag, item->tag);
    EXPECT_EQ(back->state, item->state);
    EXPECT_EQ(back->indentationLevel, item->indentationLevel);
    EXPECT_EQ(back->isEnabled, item->isEnabled);
    EXPECT_EQ(back->isHidden, item->isHidden);
    EXPECT_EQ(back->isAlternate, item->isAlternate);
    EXPECT_EQ(back->isSeparator, false);
    EXPECT_EQ(back->toolTip, item->toolTip);
    EXPECT_EQ(back->action, item->action);
    EXPECT_EQ(back->image, nullptr);
    EXPECT_EQ(back->submenu, nullptr);
}

TEST(AppKitMenuTest, ADefaultItemComesBackAsOne) {
    const auto back = returned(plainItem(""));
    EXPECT_EQ(back->title, "");
    EXPECT_EQ(back->keyEquivalent, "");
    EXPECT_EQ(back->keyEquivalentModifierMask, 0U);
    EXPECT_EQ(back->state, MenuItemState::off);
    EXPECT_TRUE(back->isEnabled);
    EXPECT_EQ(back->toolTip, std::nullopt);
    EXPECT_EQ(back->action, std::nullopt);
    EXPECT_EQ(back->otherFields, nullptr);
}

TEST(AppKitMenuTest, ASeparatorStaysOne) {
    const auto separator = MenuItem::separator();
    separator->tag = 7;
    const auto back = returned(separator);
    EXPECT_TRUE(back->isSeparator);
    EXPECT_FALSE(back->isEnabled);
    EXPECT_EQ(back->title, "");
    EXPECT_EQ(back->tag, 7);
}

TEST(AppKitMenuTest, KeepsTheSubmenusOfSubmenus) {
    const auto deep = plainItem("deep");
    deep->action = Selector{"deep:"};
    deep->tag = 3;
    const auto middle = plainItem("middle");
    middle->setSubmenu(menuOf({deep}));
    const auto top = plainItem("top");
    top->setSubmenu(menuOf({plainItem("first"), middle}));
    top->submenu->title = "below";

    const auto back = returned(top);
    ASSERT_NE(back->submenu, nullptr);
    EXPECT_EQ(back->submenu->title, "below");
    ASSERT_EQ(back->submenu->items.size(), 2U);
    EXPECT_EQ(back->submenu->items[0]->title, "first");
    const auto backMiddle = back->submenu->items[1];
    ASSERT_NE(backMiddle->submenu, nullptr);
    ASSERT_EQ(backMiddle->submenu->items.size(), 1U);
    EXPECT_EQ(backMiddle->submenu->items[0]->action, Selector{"deep:"});
    EXPECT_EQ(backMiddle->submenu->items[0]->tag, 3);
}

TEST(AppKitMenuTest, IndentationKeepsWithinWhatAppKitTakes) {
    const auto item = plainItem("x");
    item->indentationLevel = -1;
    EXPECT_EQ(returned(item)->indentationLevel, 0);
    item->indentationLevel = 16;
    EXPECT_EQ(returned(item)->indentationLevel, 15);
}

Value representedObject(const MenuItem& item) {
    const Value* value = referencedValue(findSlot(item.otherFields, "NSRepObject"));
    return value != nullptr ? *value : Value();
}

TEST(AppKitMenuTest, CarriesTheRepresentedObject) {
    const auto item = plainItem("x");
    item->otherFields = fieldsWith(
        nullptr, "NSRepObject",
        Value::dictionary({{"path", Value::string("/Volumes/Corvid/ü")},
                           {"list", Value::array({Value::integer(7), Value::boolean(true)})},
                           {"url", Value::url(*URL::fromText("file:///Volumes/Corvid/a"))}}));
    NSMenuItem* made = onlyItem(appKitMenu(*menuOf({item}), nullptr, nil));
    EXPECT_EQ(utf8String([[made representedObject] objectForKey:@"path"]), "/Volumes/Corvid/ü");

    const Value back = representedObject(*portableMenuItem(made, nullptr));
    ASSERT_NE(back.asDictionary(), nullptr);
    EXPECT_EQ(*back.asDictionary()->find("path")->asString(), "/Volumes/Corvid/ü");
    EXPECT_EQ(*back.asDictionary()->find("list")->asArray()->elements[0].asInteger(), 7);
    EXPECT_EQ(back.asDictionary()->find("url")->asURL()->absoluteString(),
              "file:///Volumes/Corvid/a");
}

TEST(AppKitMenuTest, MakesNoRepresentedObjectOfAForeignClass) {
    auto foreign = std::make_shared<OpaqueObject>();
    foreign->archivedClass =
        std::make_shared<const ObjectClass>(ObjectClass{"NSTask", {"NSTask", "NSObject"}, {}});
    const auto item = plainItem("x");
    item->otherFields = fieldsWith(nullptr, "NSRepObject", Value::opaque(foreign));
    EXPECT_EQ([onlyItem(appKitMenu(*menuOf({item}), nullptr, nil)) representedObject], nil);
}

TEST(AppKitMenuTest, CarriesTheAttributedTitle) {
    NSDictionary* attributes = [NSDictionary dictionaryWithObject:[NSColor redColor]
                                                           forKey:NSForegroundColorAttributeName];
    NSAttributedString* title =
        [[[NSAttributedString alloc] initWithString:@"red" attributes:attributes] autorelease];
    const auto item = plainItem("plain");
    item->otherFields = fieldsWith(nullptr, "NSAttributedTitle", portableValue(title));

    NSMenuItem* made = onlyItem(appKitMenu(*menuOf({item}), nullptr, nil));
    EXPECT_TRUE([[made attributedTitle] isEqualToAttributedString:title]);
    const auto back = portableMenuItem(made, nullptr);
    const Value* value = referencedValue(findSlot(back->otherFields, "NSAttributedTitle"));
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE([foundationObject(*value) isEqualToAttributedString:title]);
}

TEST(AppKitMenuTest, GivesTheMenuIconBackAsItIsAndKeepsAnyOtherPicture) {
    const MacBundle bundle([NSBundle bundleWithPath:foundationString(CORVID_TEST_BUNDLE)]);
    const auto menuIcon = bundle.imageNamed("MorrowFilesAppIcon");
    const auto item = plainItem("x");
    item->image = menuIcon;
    NSMenuItem* made = onlyItem(appKitMenu(*menuOf({item}), nullptr, nil));
    EXPECT_EQ([made image], appKitImage(menuIcon));
    EXPECT_EQ(portableMenuItem(made, menuIcon)->image, menuIcon);
    EXPECT_EQ(portableMenuItem(made, menuIcon)->otherFields, nullptr);

    const auto other = portableMenuItem(made, bundle.imageNamed("Cloud_icon_16"));
    EXPECT_EQ(other->image, nullptr);
    NSMenuItem* again = onlyItem(appKitMenu(*menuOf({other}), nullptr, nil));
    EXPECT_TRUE(NSEqualSizes([[again image] size], NSMakeSize(16, 16)));
}

TEST(AppKitMenuTest, ReleasesEveryItem) {
    NSMenuItem* kept = nil;
    @autoreleasepool {
        const auto item = plainItem("x");
        item->setSubmenu(menuOf({plainItem("y")}));
        kept = [onlyItem(appKitMenu(*menuOf({item}), nullptr, nil)) retain];
        portableMenuItem(kept, nullptr);
    }
    EXPECT_EQ([kept retainCount], 1U);
    [kept release];
}

} // namespace
} // namespace corvid
