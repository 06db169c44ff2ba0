#pragma once

#import <FinderSync/FinderSync.h>

#include "Platform/Fake/CallLog.h"

#include <cstddef>
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
/// Returns when badges were set on at least `count` items.
- (void)waitForBadges:(std::size_t)count;
/// Forgets everything.
- (void)reset;
@end
