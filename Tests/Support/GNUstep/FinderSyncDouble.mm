#import "FinderSyncDouble.h"

#include "Platform/Mac/FoundationValues.h"
#include "Platform/Mac/Retained.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace {

using corvid::Retained;

// The one controller's state. Not in the object, whose instance variables would have to be known
// in the header that stands for Apple's.
struct Finder {
    std::mutex mutex;
    std::condition_variable badgeSet;
    std::vector<std::string> calls;
    corvid::CallLog* mirror = nullptr;
    std::size_t badges = 0;
    std::function<void()> afterBadge;
    std::function<void()> whenSuperclassEnds;
    Retained<NSSet> directoryURLs;
    Retained<NSURL> targetedURL;
    Retained<NSArray> selectedItemURLs;
};

Finder& finder() {
    static Finder shared;
    return shared;
}

void record(std::string call) {
    const std::lock_guard lock(finder().mutex);
    if (finder().mirror != nullptr) {
        finder().mirror->add(call);
    }
    finder().calls.push_back(std::move(call));
}

// Without the lock, because it may call back.
void call(std::function<void()> Finder::* member) {
    std::function<void()> block;
    {
        const std::lock_guard lock(finder().mutex);
        block = finder().*member;
    }
    if (block) {
        block();
    }
}

} // namespace

@implementation FIFinderSync

- (void)dealloc {
    call(&Finder::whenSuperclassEnds);
    [super dealloc];
}

@end

@implementation FIFinderSyncController

+ (FIFinderSyncController*)defaultController {
    static FIFinderSyncController* shared = [FIFinderSyncController new];
    return shared;
}

- (NSSet*)directoryURLs {
    const std::lock_guard lock(finder().mutex);
    return finder().directoryURLs.autoreleased();
}

- (void)setDirectoryURLs:(NSSet*)urls {
    std::string line = "setDirectoryURLs [";
    for (NSURL* url in urls) {
        line += (line.back() == '[' ? "" : ", ") + corvid::utf8String([url absoluteString]);
    }
    record(line + "]");
    const std::lock_guard lock(finder().mutex);
    finder().directoryURLs = Retained<NSSet>::share(urls);
}

- (void)setBadgeImage:(NSImage*)image label:(NSString*)label forBadgeIdentifier:(NSString*)badgeID {
    record(std::string("setBadgeImage ") + (image != nil ? "image" : "no image") +
           (label != nil ? " label " + corvid::utf8String(label) : " no label") + " identifier " +
           corvid::utf8String(badgeID));
}

- (void)setBadgeIdentifier:(NSString*)badgeID forURL:(NSURL*)url {
    record("setBadgeIdentifier " + corvid::utf8String(badgeID) + " " +
           corvid::utf8String([url absoluteString]));
    {
        const std::lock_guard lock(finder().mutex);
        ++finder().badges;
        finder().badgeSet.notify_all();
    }
    call(&Finder::afterBadge);
}

- (NSURL*)targetedURL {
    const std::lock_guard lock(finder().mutex);
    return finder().targetedURL.autoreleased();
}

- (NSArray*)selectedItemURLs {
    const std::lock_guard lock(finder().mutex);
    return finder().selectedItemURLs.autoreleased();
}

@end

@implementation FIFinderSyncController (Double)

- (void)setTargetedURL:(NSURL*)targeted selectedItemURLs:(NSArray*)selected {
    const std::lock_guard lock(finder().mutex);
    finder().targetedURL = Retained<NSURL>::share(targeted);
    finder().selectedItemURLs = Retained<NSArray>::share(selected);
}

- (std::vector<std::string>)calls {
    const std::lock_guard lock(finder().mutex);
    return finder().calls;
}

- (void)mirrorCallsTo:(corvid::CallLog*)log {
    const std::lock_guard lock(finder().mutex);
    finder().mirror = log;
}

- (void)afterEachBadgeCall:(std::function<void()>)block {
    const std::lock_guard lock(finder().mutex);
    finder().afterBadge = std::move(block);
}

- (void)whenASuperclassEndsCall:(std::function<void()>)block {
    const std::lock_guard lock(finder().mutex);
    finder().whenSuperclassEnds = std::move(block);
}

- (void)waitForBadges:(std::size_t)count {
    std::unique_lock lock(finder().mutex);
    finder().badgeSet.wait(lock, [count] { return finder().badges >= count; });
}

- (void)reset {
    const std::lock_guard lock(finder().mutex);
    finder().calls.clear();
    finder().mirror = nullptr;
    finder().badges = 0;
    finder().afterBadge = nullptr;
    finder().whenSuperclassEnds = nullptr;
    finder().directoryURLs = {};
    finder().targetedURL = {};
    finder().selectedItemURLs = {};
}

@end
