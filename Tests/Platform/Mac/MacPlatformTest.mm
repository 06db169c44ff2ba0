#include "Platform/Mac/MacBundle.h"
#include "Platform/Mac/MacDispatch.h"
#include "Platform/Mac/MacFileManager.h"
#include "Platform/Mac/MacFinderSyncController.h"
#include "Platform/Mac/MacImage.h"
#include "Platform/Mac/MacPasteboard.h"
#include "Platform/Mac/MacSystemLog.h"
#include "Tests/Support/GNUstep/FinderSyncDouble.h"

#include "Platform/Mac/FoundationValues.h"

#import <objc/runtime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

/// Stands for the pasteboard, which in GNUstep is a process of its own.
@interface RecordingPasteboard : NSObject {
    NSMutableArray* _calls;
}
- (NSArray*)calls;
@end

@implementation RecordingPasteboard

- (instancetype)init {
    self = [super init];
    if (self != nil) {
        _calls = [NSMutableArray new];
    }
    return self;
}

- (void)dealloc {
    [_calls release];
    [super dealloc];
}

- (NSArray*)calls {
    return _calls;
}

- (NSInteger)declareTypes:(NSArray*)types owner:(id)owner {
    [_calls addObject:[NSString stringWithFormat:@"declareTypes (%@) owner %@",
                                                 [types componentsJoinedByString:@" "],
                                                 owner == nil ? @"nil" : owner]];
    return 1;
}

- (BOOL)setString:(NSString*)text forType:(NSString*)type {
    [_calls addObject:[NSString stringWithFormat:@"setString %@ forType %@", text, type]];
    return YES;
}

@end

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class MacBundleTest : public testing::Test {
protected:
    MacBundle bundle{[NSBundle bundleWithPath:foundationString(CORVID_TEST_BUNDLE)]};
};

TEST_F(MacBundleTest, KnowsItsIdentifier) {
    EXPECT_EQ(bundle.bundleIdentifier(), "com.corvid.desktop.widget.FinderExt");
}

TEST_F(MacBundleTest, FindsEveryPictureByItsResourceName) {
    for (const char* name :
         {"Cloud_icon_16", "FinderSyncExtensionIcons_syncing.icns",
          "FinderSyncExtensionIcons_checkout.icns", "FinderSyncExtensionIcons_synced.icns",
          "FinderSyncExtensionIcons_error.icns", "FinderSyncExtensionIcons_accessdenied.icns",
          "FinderSyncExtensionIcons_syncedpartial.icns", "MorrowFilesAppIcon"}) {
        const std::shared_ptr<Image> image = bundle.imageNamed(name);
        ASSERT_NE(image, nullptr) << name;
        EXPECT_EQ(image->name, name);
        EXPECT_THAT(image->path, HasSubstr(name));
        @autoreleasepool {
            const NSSize size = [appKitImage(image) size];
            EXPECT_GE(size.width, 16) << name;
            EXPECT_EQ(size.width, size.height) << name;
        }
    }
    EXPECT_EQ(bundle.imageNamed("FinderSyncExtensionIcons_none.icns"), nullptr);
    EXPECT_EQ(bundle.imageNamed(""), nullptr);
}

TEST_F(MacBundleTest, MakesANewObjectAtEachCall) {
    const std::shared_ptr<Image> first = bundle.imageNamed("MorrowFilesAppIcon");
    const std::shared_ptr<Image> second = bundle.imageNamed("MorrowFilesAppIcon");
    EXPECT_NE(first, second);
    EXPECT_NE(appKitImage(first), appKitImage(second));
}

TEST_F(MacBundleTest, ReadsTheStringTable) {
    EXPECT_EQ(bundle.localizedString("Global_Favorites"), "Favorites");
    EXPECT_EQ(bundle.localizedString("NoSuchKey"), "NoSuchKey");
}

TEST(MacFinderSyncControllerTest, SaysToFinderWhatItIsTold) {
    MacFinderSyncController finder;
    ::FIFinderSyncController* seen = [::FIFinderSyncController defaultController];
    [seen reset];
    const MacBundle bundle([NSBundle bundleWithPath:foundationString(CORVID_TEST_BUNDLE)]);

    finder.setDirectoryURLs({*URL::fileURL("/Volumes/Corvid")});
    finder.setBadgeImage(bundle.imageNamed("Cloud_icon_16"), "Cloud", "cloud");
    finder.setBadgeImage(bundle.imageNamed("Cloud_icon_16"), std::nullopt, "bare");
    finder.setBadgeIdentifier("synced", *URL::fileURL("/Volumes/Corvid/a b.txt"));
    finder.setDirectoryURLs({});
    EXPECT_THAT([seen calls],
                ElementsAre("setDirectoryURLs [file:///Volumes/Corvid]",
                            "setBadgeImage image label Cloud identifier cloud",
                            "setBadgeImage image no label identifier bare",
                            "setBadgeIdentifier synced file:///Volumes/Corvid/a%20b.txt",
                            "setDirectoryURLs []"));
}

TEST(MacFinderSyncControllerTest, TellsNoSelectionFromAnEmptyOne) {
    @autoreleasepool {
        MacFinderSyncController finder;
        ::FIFinderSyncController* seen = [::FIFinderSyncController defaultController];
        [seen reset];
        EXPECT_EQ(finder.targetedURL(), std::nullopt);
        EXPECT_EQ(finder.selectedItemURLs(), std::nullopt);

        NSURL* folder = [NSURL fileURLWithPath:@"/Volumes/Corvid/d" isDirectory:YES];
        [seen setTargetedURL:folder selectedItemURLs:[NSArray array]];
        EXPECT_EQ(finder.targetedURL(), URL::fileURL("/Volumes/Corvid/d", true));
        EXPECT_EQ(finder.selectedItemURLs(), std::vector<URL>());

        NSURL* item = [NSURL fileURLWithPath:@"/Volumes/Corvid/d/x" isDirectory:NO];
        [seen setTargetedURL:nil selectedItemURLs:[NSArray arrayWithObjects:item, folder, nil]];
        EXPECT_THAT(finder.selectedItemURLs(),
                    testing::Optional(ElementsAre(*URL::fileURL("/Volumes/Corvid/d/x"),
                                                  *URL::fileURL("/Volumes/Corvid/d", true))));
        [seen reset];
    }
}

TEST(MacDispatchTest, RunsBlocksInOrderOnOneQueuePerLabel) {
    std::vector<int> order;
    {
        MacDispatch dispatch;
        DispatchQueue& queue = dispatch.serialQueue("one");
        EXPECT_EQ(&dispatch.serialQueue("one"), &queue);
        EXPECT_NE(&dispatch.serialQueue("two"), &queue);
        EXPECT_EQ(queue.label(), "one");
        EXPECT_FALSE(queue.isCurrent());

        std::promise<std::thread::id> done;
        for (int i = 0; i < 100; ++i) {
            queue.async([&order, i] { order.push_back(i); });
        }
        queue.async([&] {
            EXPECT_TRUE(queue.isCurrent());
            EXPECT_FALSE(dispatch.serialQueue("two").isCurrent());
            done.set_value(std::this_thread::get_id());
        });
        EXPECT_NE(done.get_future().get(), std::this_thread::get_id());
    }
    ASSERT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

RecordingPasteboard* sharedPasteboard = nil;
id generalPasteboard(id /*self*/, SEL /*command*/) {
    return sharedPasteboard;
}

TEST(MacPasteboardTest, DeclaresTheStringTypeAndSetsTheText) {
    @autoreleasepool {
        Method method = class_getClassMethod([NSPasteboard class], @selector(generalPasteboard));
        const IMP previous =
            method_setImplementation(method, reinterpret_cast<IMP>(generalPasteboard));
        sharedPasteboard = [RecordingPasteboard new];
        MacPasteboard pasteboard;
        pasteboard.declareStringType();
        pasteboard.setString("/Volumes/Corvid/ü");
        EXPECT_EQ(utf8String([[sharedPasteboard calls] componentsJoinedByString:@"\n"]),
                  "declareTypes (NSStringPboardType) owner nil\n"
                  "setString /Volumes/Corvid/ü forType NSStringPboardType");
        [sharedPasteboard release];
        method_setImplementation(method, previous);
    }
}

TEST(MacSystemLogTest, WritesOneLine) {
    testing::internal::CaptureStderr();
    MacSystemLog().log("100 % of \"x\" %@");
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_THAT(line, testing::EndsWith("100 % of \"x\" %@\n"));
}

} // namespace
} // namespace corvid
