#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/OpaqueObject.h"
#include "Platform/Mac/FoundationValues.h"
#include "Tests/Core/Archive/ArchiveComparison.h"
#include "Tests/Platform/Mac/CommonNotation.h"
#include "Tests/Support/MenuArchiveFiles.h"
#include "Tests/Support/ValueText.h"

#import <AppKit/AppKit.h>

#include <gtest/gtest.h>

#include <filesystem>
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#endif

// The payloads go through our own codec. Here the same bytes go through Foundation's, too, in both
// directions: GNUstep's, which is a second implementation of the format.

/// The class of an item in one of the menus: Foundation reads no object of a class that it lacks.
@interface CRVMenuItem : NSMenuItem
@end
@implementation CRVMenuItem
@end

namespace corvid {
namespace {

NSData* dataOf(const Value& value) {
    const Bytes archive = archivedData(value);
    return [NSData dataWithBytes:archive.data() length:archive.size()];
}

/// Read by Foundation. Its property lists lose a few of the objects that they make of a menu's
/// archive, which is not for this test to report.
id readByFoundation(ByteView archive) {
    NSData* data = [NSData dataWithBytes:archive.data() length:archive.size()];
#if __has_feature(address_sanitizer)
    const __lsan::ScopedDisabler disabler;
#endif
    return [NSKeyedUnarchiver unarchiveObjectWithData:data];
}

/// The archive, read and written again by Foundation, read by ours; null when either refuses.
Value byWayOfFoundation(ByteView archive) {
    id object = readByFoundation(archive);
    if (object == nil) {
        return {};
    }
    NSData* again = [NSKeyedArchiver archivedDataWithRootObject:object];
    const auto* bytes = static_cast<const std::uint8_t*>([again bytes]);
    return unarchivedObject(ByteView(bytes, [again length])).value_or(Value());
}

/// Ours, read and written again by Foundation, read by ours.
std::string byWayOfFoundation(const Value& value) {
    id object = [NSKeyedUnarchiver unarchiveObjectWithData:dataOf(value)];
    NSData* again = [NSKeyedArchiver archivedDataWithRootObject:object];
    const auto* bytes = static_cast<const std::uint8_t*>([again bytes]);
    const auto read = unarchivedObject(ByteView(bytes, [again length]));
    return read ? valueText(*read) : "unreadable";
}

Value itemURL(const char* name) {
    return Value::url(*URL::fileURL("/Volumes/Corvid/" + std::string(name)));
}

std::shared_ptr<MenuItem> item(std::string title, std::int64_t tag, const char* action) {
    auto made = std::make_shared<MenuItem>();
    made->title = std::move(title);
    made->tag = tag;
    made->action = Selector{action};
    return made;
}

TEST(KeyedArchiveAgreementTest, EveryPayloadWithoutAMenuSurvivesFoundation) {
    const Value payloads[] = {
        Value::dictionary({{"paths", Value::array({itemURL("a b.txt"), itemURL("ü/資料.pdf")})},
                           {"operatingOnParent", Value::boolean(false)}}),
        Value::dictionary({{"badgeID", Value::string("syncedpartial")}, {"path", itemURL("a")}}),
        Value::dictionary({{"url", itemURL("50% #1?.txt")}}),
        Value::dictionary(
            {{"portId", Value::string("ZQ7X2KD4W9.group-1")}, {"register", Value::boolean(true)}}),
        Value::dictionary({{"path", itemURL("d")}, {"add", Value::boolean(true)}}),
        Value::dictionary(
            {{"paths", Value::array({})}, {"operatingOnParent", Value::boolean(true)}}),
        Value::string("synced"),
        Value::array({}),
    };
    for (const Value& payload : payloads) {
        EXPECT_EQ(byWayOfFoundation(payload), valueText(payload));
    }
}

TEST(KeyedArchiveAgreementTest, FoundationReadsTheMenuItemThatWasClicked) {
    const auto clicked = item("Schließen …", 42, "close:");
    clicked->state = MenuItemState::mixed;
    clicked->keyEquivalent = "k";
    clicked->keyEquivalentModifierMask = 1 << 20;
    clicked->isEnabled = false;
    const Value payload = Value::dictionary({{"action", Value::menuItem(clicked)},
                                             {"path", Value::array({itemURL("a"), itemURL("b")})}});

    NSDictionary* message = [NSKeyedUnarchiver unarchiveObjectWithData:dataOf(payload)];
    NSMenuItem* read = [message objectForKey:@"action"];
    ASSERT_TRUE([read isKindOfClass:[NSMenuItem class]]);
    EXPECT_EQ(utf8String([read title]), "Schließen …");
    EXPECT_EQ([read tag], 42);
    EXPECT_EQ(utf8String(NSStringFromSelector([read action])), "close:");
    EXPECT_EQ([read state], NSMixedState);
    EXPECT_EQ(utf8String([read keyEquivalent]), "k");
    EXPECT_EQ([read keyEquivalentModifierMask], 1U << 20);
    EXPECT_FALSE([read isEnabled]);
    EXPECT_EQ([[message objectForKey:@"path"] count], 2U);
}

TEST(KeyedArchiveAgreementTest, WeReadTheMenuThatFoundationWrites) {
    NSMenuItem* first = [[[NSMenuItem alloc] initWithTitle:@"Überblick"
                                                    action:@selector(overview:)
                                             keyEquivalent:@"o"] autorelease];
    [first setTag:-7];
    [first setState:NSOnState];
    NSMenuItem* more = [[[NSMenuItem alloc] initWithTitle:@"More" action:NULL
                                            keyEquivalent:@""] autorelease];
    NSMenu* below = [[[NSMenu alloc] initWithTitle:@"More"] autorelease];
    [below addItem:[[[NSMenuItem alloc] initWithTitle:@"Less"
                                               action:@selector(less:)
                                        keyEquivalent:@""] autorelease]];
    [more setSubmenu:below];
    id separator = [NSMenuItem separatorItem];
    NSData* archive = [NSKeyedArchiver
        archivedDataWithRootObject:[NSArray arrayWithObjects:first, separator, more, nil]];

    const auto* bytes = static_cast<const std::uint8_t*>([archive bytes]);
    const auto read = unarchivedObject(ByteView(bytes, [archive length]));
    ASSERT_TRUE(read && read->asArray() != nullptr);
    const auto& items = read->asArray()->elements;
    ASSERT_EQ(items.size(), 3U);
    const auto readFirst = items[0].asMenuItem();
    ASSERT_NE(readFirst, nullptr);
    EXPECT_EQ(readFirst->title, "Überblick");
    EXPECT_EQ(readFirst->tag, -7);
    EXPECT_EQ(readFirst->state, MenuItemState::on);
    EXPECT_EQ(readFirst->action, Selector{"overview:"});
    EXPECT_EQ(readFirst->keyEquivalent, "o");
    EXPECT_TRUE(items[1].asMenuItem()->isSeparator);
    const auto submenu = items[2].asMenuItem()->submenu;
    ASSERT_NE(submenu, nullptr);
    ASSERT_EQ(submenu->items.size(), 1U);
    EXPECT_EQ(submenu->items[0]->title, "Less");
    EXPECT_EQ(submenu->items[0]->action, Selector{"less:"});
}

// Reads the archive with both sides, has each write what it read, and reads that with the other.
void expectAgreement(const std::filesystem::path& file) {
    const Bytes archive = readTestFile(file);
    const auto ours = unarchivedObject(archive);
    ASSERT_TRUE(ours) << file;
    // GNUstep takes the text "$null" for nil even where no key leads to it.
    const bool isNilThere = ours->asString() != nullptr && *ours->asString() == "$null";
    const std::string expected = commonNotation(isNilThere ? Value() : *ours);
    EXPECT_EQ(commonNotation(byWayOfFoundation(archive)), expected) << file;
    EXPECT_EQ(commonNotation(byWayOfFoundation(archivedData(*ours))), expected) << file;
}

std::size_t expectAgreementInFolder(const std::filesystem::path& folder, const char* extension) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == extension) {
            expectAgreement(entry.path());
            ++count;
        }
    }
    return count;
}

TEST(KeyedArchiveAgreementTest, EveryMessageOfFoundationIsReadAndWrittenAlike) {
    EXPECT_EQ(expectAgreementInFolder(CORVID_TEST_DATA "/archives", ".archive"), 58U);
}

class MenuAgreementTest : public testing::TestWithParam<MenuArchiveFiles> {};

TEST_P(MenuAgreementTest, EveryMenuIsReadAndWrittenAlike) {
    const auto files = GetParam().files();
    if (files.empty()) {
        GTEST_SKIP() << "CORVID_EXTRA_TEST_DATA is not set";
    }
    for (const auto& file : files) {
        SCOPED_TRACE(file);
        expectAgreement(file);
    }
}

INSTANTIATE_TEST_SUITE_P(Menus, MenuAgreementTest, testing::ValuesIn(kMenuArchives),
                         nameOfMenuArchives);

} // namespace
} // namespace corvid
