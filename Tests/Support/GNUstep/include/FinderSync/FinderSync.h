#pragma once

// The part of the FinderSync framework that the shell uses, declared as Apple documents it
// (https://developer.apple.com/documentation/findersync) and realised in FinderSyncDouble.mm.

#import <AppKit/AppKit.h>

typedef NS_ENUM(NSUInteger, FIMenuKind) {
    FIMenuKindContextualMenuForItems = 0,
    FIMenuKindContextualMenuForContainer = 1,
    FIMenuKindContextualMenuForSidebar = 2,
    FIMenuKindToolbarItemMenu = 3,
};

@protocol FIFinderSync <NSObject>
@optional
- (NSMenu*)menuForMenuKind:(FIMenuKind)menu;
- (void)beginObservingDirectoryAtURL:(NSURL*)url;
- (void)endObservingDirectoryAtURL:(NSURL*)url;
- (void)requestBadgeIdentifierForURL:(NSURL*)url;
@end

@interface FIFinderSync : NSObject <FIFinderSync>
@end

@interface FIFinderSyncController : NSObject
+ (FIFinderSyncController*)defaultController;
- (NSSet*)directoryURLs;
- (void)setDirectoryURLs:(NSSet*)urls;
- (void)setBadgeImage:(NSImage*)image label:(NSString*)label forBadgeIdentifier:(NSString*)badgeID;
- (void)setBadgeIdentifier:(NSString*)badgeID forURL:(NSURL*)url;
- (NSURL*)targetedURL;
- (NSArray*)selectedItemURLs;
@end

// For the application that carries the extension, which is compiled here and not linked.
@interface FIFinderSyncController (Application)
+ (BOOL)isExtensionEnabled;
+ (void)showExtensionManagementInterface;
@end
