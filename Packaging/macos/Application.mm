#import <AppKit/AppKit.h>
#import <FinderSync/FinderSync.h>

// The application that carries the extension: an extension is installed with one and in no other
// way. It shows where the extension is switched on, and ends.

int main() {
    @autoreleasepool {
        [NSApplication sharedApplication];
        [NSApp setActivationPolicy:NSApplicationActivationPolicyRegular];
        [NSApp activateIgnoringOtherApps:YES];

        NSAlert* alert = [NSAlert new];
        [alert setMessageText:@"Corvid shows badges and menus in Finder."];
        [alert setInformativeText:[FIFinderSyncController isExtensionEnabled]
                                      ? @"The Finder extension is switched on."
                                      : @"Switch the Finder extension on in System Settings."];
        [alert addButtonWithTitle:@"Open Settings"];
        [alert addButtonWithTitle:@"Close"];
        if ([alert runModal] == NSAlertFirstButtonReturn) {
            [FIFinderSyncController showExtensionManagementInterface];
        }
    }
    return 0;
}
