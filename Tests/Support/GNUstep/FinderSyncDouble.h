#pragma once

#import <FinderSync/FinderSync.h>

#include "Platform/Fake/CallLog.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// The side of the double of FinderSync that a test sees. Any thread.
@interface FIFinderSyncController (Double)
/// What the next menu is opened on; nil for none.
- (void)setTargetedURL:(NSURL*)targeted selectedItemURLs:(NSArray*)selected;
/// The calls so far, in the words of FakeFinderSyncController, but with "image" or "no image" in
/// the place of an image's name, which an NSImage does not know.
- (std::vector<std::string>)calls;
/// Records each call into `log`, too, until the next reset. Not owned.
- (void)mirrorCallsTo:(corvid::CallLog*)log;
/// Calls `block` whenever a badge was set on an item, on the thread that set it, until the next
/// reset. Not while one may be set.
- (void)afterEachBadgeCall:(std::function<void()>)block;
/// Calls `block` when an extension's superclass is deallocated, until the next reset. Not while one
/// may be.
- (void)whenASuperclassEndsCall:(std::function<void()>)block;
/// Returns when badges were set on at least `count` items.
- (void)waitForBadges:(std::size_t)count;
/// Forgets everything.
- (void)reset;
@end
