#pragma once

#import <FinderSync/FinderSync.h>

/// The extension's principal class, which Finder finds by its name in Info.plist. It forwards what
/// Finder calls to the portable controller of the same name and decides nothing. Finder calls
/// exactly seven methods: init, dealloc, and the five that follow.
@interface CVMAFinderSync : FIFinderSync {
@private
    struct CVMAFinderSyncState* _state;
}

- (void)beginObservingDirectoryAtURL:(NSURL*)url;
- (void)endObservingDirectoryAtURL:(NSURL*)url;
- (void)requestBadgeIdentifierForURL:(NSURL*)url;
- (NSMenu*)menuForMenuKind:(FIMenuKind)menu;
/// The action of every menu item that the extension made.
- (void)performAction:(id)sender;

@end
