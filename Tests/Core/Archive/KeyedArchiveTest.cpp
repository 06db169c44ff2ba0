#include "Core/Archive/KeyedArchive.h"

#include "Core/Archive/Menu.h"
#include "Tests/Core/Archive/BrokenArchives.h"
#include "Tests/Support/BytesOf.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

Value archivedAndBack(const Value& value) {
    ArchiveError error;
    auto result = unarchivedObject(archivedData(value), &error);
    EXPECT_TRUE(result) << error.message();
    return result.value_or(Value());
}

TEST(KeyedArchive, KeepsPlainValues) {
    EXPECT_TRUE(archivedAndBack(Value()).isNull());
    EXPECT_EQ(*archivedAndBack(Value::boolean(true)).asBoolean(), true);
    EXPECT_EQ(*archivedAndBack(Value::integer(INT64_MIN)).asInteger(), INT64_MIN);
    EXPECT_EQ(*archivedAndBack(Value::integer(INT64_MAX)).asInteger(), INT64_MAX);
    EXPECT_EQ(*archivedAndBack(Value::real(-0.1)).asReal(), -0.1);
    EXPECT_EQ(*archivedAndBack(Value::string("été")).asString(), "été");
    EXPECT_EQ(archivedAndBack(Value::date({0.25})).asDate()->secondsSinceReferenceDate, 0.25);
    EXPECT_EQ(archivedAndBack(Value::data({1, 2, 255})).asData()->bytes, (Bytes{1, 2, 255}));
}

TEST(KeyedArchive, KeepsMutability) {
    EXPECT_TRUE(archivedAndBack(Value::of(Array{{}, true})).asArray()->isMutable);
    EXPECT_TRUE(archivedAndBack(Value::of(Set{{}, true})).asSet()->isMutable);
    EXPECT_TRUE(archivedAndBack(Value::of(Dictionary{{}, true})).asDictionary()->isMutable);
    EXPECT_TRUE(archivedAndBack(Value::of(String{"m", true})).asStringObject()->isMutable);
    EXPECT_TRUE(archivedAndBack(Value::of(Data{{7}, true})).asData()->isMutable);
    EXPECT_FALSE(archivedAndBack(Value::array({})).asArray()->isMutable);
}

TEST(KeyedArchive, KeepsTheOrderOfADictionary) {
    const Value back =
        archivedAndBack(Value::dictionary({{"z", Value::integer(1)}, {"a", Value::integer(2)}}));
    ASSERT_NE(back.asDictionary(), nullptr);
    EXPECT_EQ(*back.asDictionary()->entries[0].first.asString(), "z");
    EXPECT_EQ(*back.asDictionary()->find("a")->asInteger(), 2);
    EXPECT_EQ(back.asDictionary()->find("b"), nullptr);
}

// The elements of an array with these keys, as archives of old have them, each followed by a blank.
std::string elementsUnder(const std::string& keys) {
    const auto array = unarchivedObject(bytesOf(archiveXML(
        "<string>$null</string><dict><key>$class</key>@5" + keys +
        "</dict><string>a</string><string>b</string><string>c</string><dict><key>$classname</key>"
        "<string>NSArray</string><key>$classes</key><array><string>NSArray</string></array></"
        "dict>")));
    std::string text;
    if (array && array->asArray() != nullptr) {
        for (const Value& element : array->asArray()->elements) {
            text += *element.asString() + " ";
        }
    }
    return text;
}

TEST(KeyedArchive, ReadsNumberedKeys) {
    const std::string a = "<key>NS.object.0</key>@2";
    const std::string b = "<key>NS.object.1</key>@3";
    const std::string c = "<key>NS.object.2</key>@4";
    EXPECT_EQ(elementsUnder(a + b + c), "a b c ");
    EXPECT_EQ(elementsUnder(c + a + b), "a b c ") << "in any order";
    EXPECT_EQ(elementsUnder(a + c), "a ") << "up to the first that is missing";
    EXPECT_EQ(elementsUnder(b + c), "") << "from 0 on";
    EXPECT_EQ(elementsUnder(a + "<key>NS.object.01</key>@3"), "a ") << "not by another spelling";
    EXPECT_EQ(elementsUnder(a + "<key>NS.object.</key>@3"), "a ");
    EXPECT_EQ(elementsUnder(a + "<key>NS.object.1x</key>@3"), "a ");
    EXPECT_EQ(elementsUnder(a + "<key>NS.object.99999999999999999999</key>@3"), "a ");
    EXPECT_EQ(elementsUnder("<key>NS.objects</key><array>@4</array>" + a), "c ")
        << "a list goes before";
    EXPECT_EQ(elementsUnder(""), "");
}

TEST(KeyedArchive, ReadsADictionaryWithNumberedKeys) {
    const auto dictionary = unarchivedObject(bytesOf(archiveXML(
        "<string>$null</string><dict><key>$class</key>@6<key>NS.key.0</key>@2<key>NS.object.0</key>"
        "@3<key>NS.object.1</key>@5<key>NS.key.1</key>@4</dict><string>badgeID</string>"
        "<string>cloud</string><string>path</string><string>p</string><dict><key>$classname</key>"
        "<string>NSMutableDictionary</string><key>$classes</key><array>"
        "<string>NSMutableDictionary</string><string>NSDictionary</string></array></dict>")));
    ASSERT_TRUE(dictionary);
    ASSERT_NE(dictionary->asDictionary(), nullptr);
    EXPECT_TRUE(dictionary->asDictionary()->isMutable);
    ASSERT_EQ(dictionary->asDictionary()->entries.size(), 2U);
    EXPECT_EQ(*dictionary->asDictionary()->find("badgeID")->asString(), "cloud");
    EXPECT_EQ(*dictionary->asDictionary()->find("path")->asString(), "p");
}

TEST(KeyedArchive, SharesWhatWasShared) {
    const Value url = Value::url(*URL::fileURL("/Volumes/Corvid/same.txt"));
    const Value twin = Value::url(*URL::fileURL("/Volumes/Corvid/same.txt"));
    const Value back = archivedAndBack(Value::array({url, url, twin}));
    const auto& elements = back.asArray()->elements;
    EXPECT_EQ(elements[0].asURL()->identity(), elements[1].asURL()->identity());
    EXPECT_NE(elements[0].asURL()->identity(), elements[2].asURL()->identity());
    EXPECT_EQ(*elements[0].asURL(), *elements[2].asURL());
}

TEST(KeyedArchive, KeepsAMenuItem) {
    auto item = std::make_shared<MenuItem>();
    item->title = "Share…";
    item->keyEquivalent = "s";
    item->keyEquivalentModifierMask = 1U << 20U;
    item->tag = -7;
    item->state = MenuItemState::mixed;
    item->indentationLevel = 2;
    item->isEnabled = false;
    item->isHidden = true;
    item->isAlternate = true;
    item->toolTip = "with everyone";
    item->action = Selector{"share:"};
    const auto back = archivedAndBack(Value::menuItem(item)).asMenuItem();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->title, item->title);
    EXPECT_EQ(back->keyEquivalent, "s");
    EXPECT_EQ(back->keyEquivalentModifierMask, 1U << 20U);
    EXPECT_EQ(back->tag, -7);
    EXPECT_EQ(back->state, MenuItemState::mixed);
    EXPECT_EQ(back->indentationLevel, 2);
    EXPECT_FALSE(back->isEnabled);
    EXPECT_TRUE(back->isHidden);
    EXPECT_TRUE(back->isAlternate);
    EXPECT_FALSE(back->isSeparator);
    EXPECT_EQ(back->toolTip, "with everyone");
    EXPECT_EQ(back->action, Selector{"share:"});
    EXPECT_EQ(back->submenu, nullptr);
}

TEST(KeyedArchive, RestoresTheMenuAndTheTargetInsideASubmenu) {
    auto menu = std::make_shared<Menu>();
    menu->title = "More";
    menu->autoenablesItems = false;
    menu->add(std::make_shared<MenuItem>());
    menu->add(MenuItem::separator());
    auto item = std::make_shared<MenuItem>();
    item->setSubmenu(menu);
    const auto back = archivedAndBack(Value::array({Value::menuItem(item)}))
                          .asArray()
                          ->elements.at(0)
                          .asMenuItem();
    ASSERT_NE(back, nullptr);
    ASSERT_NE(back->submenu, nullptr);
    EXPECT_EQ(back->action, Selector{"submenuAction:"});
    EXPECT_EQ(back->target.lock(), back->submenu);
    EXPECT_EQ(back->submenu->title, "More");
    EXPECT_FALSE(back->submenu->autoenablesItems);
    ASSERT_EQ(back->submenu->items.size(), 2U);
    EXPECT_EQ(back->submenu->items[0]->menu.lock(), back->submenu);
    EXPECT_TRUE(back->submenu->items[1]->isSeparator);
}

TEST(KeyedArchive, LeavesMenuAndTargetOfALoneItemBehind) {
    auto menu = std::make_shared<Menu>();
    auto target = std::make_shared<Menu>();
    auto item = std::make_shared<MenuItem>();
    item->target = target;
    menu->add(item);
    const auto back = archivedAndBack(Value::menuItem(item)).asMenuItem();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->menu.lock(), nullptr);
    EXPECT_EQ(back->target.lock(), nullptr);
}

} // namespace
} // namespace corvid
