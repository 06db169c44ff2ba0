#include "Extensions/Finder/CVMABadgeHandler.h"
#include "Extensions/Finder/CVMAMessagePort.h"
#include "Extensions/Finder/Mac/ExtensionProcess.h"
#include "Tests/Extensions/Finder/BadgeSender.h"
#include "Tests/Extensions/Finder/Mac/PortablePlayer.h"
#include "Tests/Extensions/Finder/Mac/ShellPlayer.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/CoreFoundation/CoreFoundationDouble.h"
#include "Tests/Support/GNUstep/FinderSyncDouble.h"
#include "Tests/Support/RecordingReportingService.h"

#import <objc/runtime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <initializer_list>
#include <optional>
#include <regex>
#include <thread>

namespace corvid {
namespace {

using test::liveCoreFoundationObjects;
using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;

/// The same for two extensions: their ports' names differ, and an NSImage does not know its name.
std::string comparable(const std::string& line) {
    static const std::regex portId("(ZQ7X2KD4W9[a-z.]*findesync)-[0-9A-F-]{36}");
    static const std::regex image("^setBadgeImage \\S+ ");
    return std::regex_replace(std::regex_replace(line, portId, "$1-UUID"), image,
                              "setBadgeImage image ");
}

struct Transcript {
    std::vector<std::string> extension; ///< log lines, calls to Finder, menus, in order
    std::vector<std::string> host;      ///< messages, in order
};

/// Plays the whole life of an extension, against a host process when `hasHost`.
Transcript play(FinderPlayer& finder, CallLog& calls, bool hasHost) {
    std::optional<ChildProcess> host;
    if (hasHost) {
        host.emplace(std::vector<std::string>{CORVID_RECORDED_HOST});
        EXPECT_EQ(host->readLine(), "ready");
    }
    const auto item = [](const std::string& name) {
        return *URL::fileURL("/Volumes/Corvid/" + name);
    };
    const URL root = *URL::fileURL("/Volumes/Corvid", true);
    const URL folder = *URL::fileURL("/Volumes/Corvid/Übung 1", true);

    finder.startExtension();
    finder.beginObserving(root);
    finder.beginObserving(folder);
    for (const char* name : {"synced.txt", "none.txt", "syncedpartial", "Übung 1/error.tiff",
                             "number", "silence", "~$Report.docx", "x.tmp/cloud.txt"}) {
        finder.show(item(name));
    }
    finder.show(root);

    finder.select(root, std::vector<URL>{item("synced.txt"), item("Übung 1/a%b#.txt")});
    calls.add(finder.openMenu(FIMenuKind::contextualMenuForItems));
    if (hasHost) {
        for (const auto& place : std::vector<std::vector<std::size_t>>{
                 {0}, {1}, {2}, {3}, {4}, {4, 0}, {4, 1}, {4, 2}, {5}}) {
            finder.click(place);
        }
    }
    finder.clickSomethingElse();
    finder.select(root, std::vector<URL>{root});
    calls.add(finder.openMenu(FIMenuKind::contextualMenuForContainer));
    finder.select(std::nullopt, std::vector<URL>{});
    calls.add(finder.openMenu(FIMenuKind::toolbarItemMenu));

    if (hasHost) {
        // Before the pushes five badges were set; a temporary item gets none.
        std::size_t badges = 5;
        for (const bool isSet : {true, true, false, true}) {
            host->goOn();
            badges += isSet ? 1 : 0;
            finder.waitForBadges(badges);
        }
    }
    finder.endObserving(folder);
    finder.endExtension();

    Transcript transcript;
    for (const std::string& line : calls.lines()) {
        transcript.extension.push_back(comparable(line));
    }
    if (host) {
        while (const auto line = host->readLine()) {
            transcript.host.push_back(comparable(*line));
        }
        EXPECT_EQ(host->wait(), 0);
    }
    return transcript;
}

Transcript playShell(bool hasHost) {
    wireExtensionProcess();
    CallLog calls;
    const RecordingReportingService reporting(&calls);
    ShellPlayer finder(calls);
    return play(finder, calls, hasHost);
}

Transcript playPortable(bool hasHost) {
    CallLog calls;
    const RecordingReportingService reporting(&calls);
    PortablePlayer finder(calls);
    return play(finder, calls, hasHost);
}

TEST(ShellTest, HasExactlyTheMethodsThatFinderCalls) {
    Class principal = ShellPlayer::principalClass();
    ASSERT_NE(principal, Nil);
    EXPECT_EQ([principal superclass], [::FIFinderSync class]);
    unsigned int count = 0;
    Method* methods = class_copyMethodList(principal, &count);
    std::vector<std::string> names;
    for (unsigned int i = 0; i < count; ++i) {
        names.emplace_back(sel_getName(method_getName(methods[i])));
    }
    free(methods);
    EXPECT_THAT(names, testing::UnorderedElementsAre(
                           "init", "dealloc",
                           "beginObservingDirectoryAtURL:", "endObservingDirectoryAtURL:",
                           "requestBadgeIdentifierForURL:", "menuForMenuKind:", "performAction:"));
}

TEST(ShellTest, DoesWhatThePortableControllerDoes) {
    const Transcript shell = playShell(true);
    const Transcript portable = playPortable(true);
    EXPECT_THAT(shell.extension, ElementsAreArray(portable.extension));
    EXPECT_THAT(shell.host, ElementsAreArray(portable.host));

    // That both did something at all.
    EXPECT_THAT(shell.extension,
                Contains("setBadgeIdentifier synced file:///Volumes/Corvid/synced.txt"));
    EXPECT_THAT(shell.extension, Contains("setBadgeIdentifier inProgress "
                                          "file:///Volumes/Corvid/pushed%20%C3%BC.txt"));
    EXPECT_THAT(shell.extension,
                Contains(HasSubstr("(title \"Copy Path\", tag 41, action performAction:) of the "
                                   "extension with the icon")));
    EXPECT_THAT(shell.host, Contains(HasSubstr("title \"Copy Path\", tag 41, action copyPath:")));
    EXPECT_THAT(shell.host, Contains(HasSubstr("NSRepObject {\"id\": 42")));
    EXPECT_THAT(shell.host, Contains(HasSubstr("NSAttributedTitle NSAttributedString(")));
    EXPECT_THAT(shell.host.back(), HasSubstr("\"register\": false"));
}

TEST(ShellTest, DoesWhatThePortableControllerDoesWithoutAHost) {
    const Transcript shell = playShell(false);
    EXPECT_THAT(shell.extension, ElementsAreArray(playPortable(false).extension));
    EXPECT_THAT(shell.extension,
                Contains("setBadgeIdentifier cloud file:///Volumes/Corvid/none.txt"));
    EXPECT_THAT(shell.extension, Contains("menu \"Corvid\"\n"));
}

TEST(ShellTest, ReleasesEveryObject) {
    playShell(true); // What is made once in a process is made now.
    GSDebugAllocationActive(YES);
    const char* const kClasses[] = {"CVMAFinderSync", "NSMenu",       "NSMenuItem",
                                    "NSImage",        "GSMutableSet", "NSURL"};
    const auto counts = [&kClasses] {
        std::vector<int> live;
        for (const char* name : kClasses) {
            live.push_back(GSDebugAllocationCount(objc_getClass(name)));
        }
        return live;
    };
    const std::vector<int> before = counts();
    const long coreFoundationBefore = liveCoreFoundationObjects();
    playShell(true);
    EXPECT_EQ(counts(), before);
    EXPECT_EQ(liveCoreFoundationObjects(), coreFoundationBefore);
    for (const char* name : kClasses) {
        EXPECT_GT(GSDebugAllocationTotal(objc_getClass(name)), 0) << name << " was not counted";
    }
    GSDebugAllocationActive(NO);
}

/// The end of an extension while a push is in work, told in order.
class ShellEndTest : public testing::Test {
protected:
    ShellEndTest() {
        wireExtensionProcess();
        reporting_.emplace(&calls_);
        shell_.emplace(calls_);
        [finder() whenASuperclassEndsCall:[this] { calls_.add("the superclass ends"); }];
        shell_->startExtension();
        calls_.clear();
    }

    static ::FIFinderSyncController* finder() {
        return [::FIFinderSyncController defaultController];
    }
    static bool isSlotEmpty() { return CVMABadgeHandler::delegate().delegate() == nullptr; }
    /// One push on its queue; `hasEnded` becomes ready when it has been dealt with.
    static void push(std::promise<void>& hasEnded) {
        CVMAMessagePort::messagePortQueue().async([&hasEnded] {
            @autoreleasepool {
                CVMABadgeHandler::processProvideBadgeMessage(pushOf("synced", "a.txt"));
            }
            hasEnded.set_value();
        });
    }
    std::vector<std::string> happened() {
        std::vector<std::string> lines;
        for (const std::string& line : calls_.lines()) {
            lines.push_back(comparable(line));
        }
        return lines;
    }

    CallLog calls_;
    std::optional<RecordingReportingService> reporting_;
    std::optional<ShellPlayer> shell_;
};

const std::vector<std::string> kPush = {
    "log 6 <UI> Set badge with id =synced for url =/Volumes/Corvid/a.txt",
    "setBadgeIdentifier synced file:///Volumes/Corvid/a.txt"};
const std::vector<std::string> kTeardown = {"log 5 <UI> MessagePort: Unregistering portId = "
                                            "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync-UUID",
                                            "log 2 <UI> MessagePort: Unable to open server port",
                                            "setDirectoryURLs []",
                                            "log 6 <UI> Deinit of CVMAFinderSync port id= "
                                            "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync-UUID",
                                            "log 5 <UI> MessagePort: invalidating server port",
                                            "log 6 <UI> Deinit of CVMABadgeHandler",
                                            "removeLoggingService",
                                            "the superclass ends"};

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

TEST_F(ShellEndTest, ThePushInWorkEndsFirstAndTheSuperclassLast) {
    std::promise<void> inWork;
    std::promise<void> hasEnded;
    std::atomic<bool> isFinderBack{false};
    bool wasFinderBack = false;
    [finder() afterEachBadgeCall:[&] {
        inWork.set_value();
        // Empty from the moment that Finder lets go, which is waiting for this push now.
        while (!isSlotEmpty() && !isFinderBack) {
            std::this_thread::yield();
        }
        wasFinderBack = isFinderBack;
        calls_.add("the push goes on");
    }];
    push(hasEnded);
    inWork.get_future().wait();
    shell_->endExtension();
    isFinderBack = true;
    EXPECT_THAT(happened(), ElementsAreArray(joined({kPush, {"the push goes on"}, kTeardown})));
    EXPECT_TRUE(isSlotEmpty());
    hasEnded.get_future().wait();
    EXPECT_FALSE(wasFinderBack);
    EXPECT_EQ(happened().size(), kPush.size() + 1 + kTeardown.size());
}

TEST_F(ShellEndTest, ReleasedFromWithinAPushItIsTornDownThereAndTheSuperclassEndsLast) {
    std::promise<void> hasEnded;
    bool wasEmpty = false;
    [finder() afterEachBadgeCall:[&] {
        shell_->endExtension();
        wasEmpty = isSlotEmpty();
        calls_.add("the push goes on");
    }];
    push(hasEnded);
    hasEnded.get_future().wait();
    EXPECT_THAT(happened(), ElementsAreArray(joined({kPush, kTeardown, {"the push goes on"}})));
    EXPECT_TRUE(wasEmpty);
}

TEST(ShellDeathTest, StopsWhenAMenuIsAskedForWithoutASelection) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto askWithoutSelection = [] {
        CallLog calls;
        ShellPlayer finder(calls);
        finder.startExtension();
        finder.select(std::nullopt, std::nullopt);
        finder.openMenu(FIMenuKind::contextualMenuForItems);
    };
    EXPECT_DEATH(askWithoutSelection(), "fatal: a menu was asked for without a selection");
}

} // namespace
} // namespace corvid
