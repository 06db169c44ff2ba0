#pragma once

// GNUstep's AppKit, and what the macOS sources use of Apple's that version 0.29 lacks.
// Realised in Menus.mm.

#import <Foundation/Foundation.h>

#include_next <AppKit/AppKit.h>

@interface NSMenuItem (CorvidAdditions)
- (void)setHidden:(BOOL)hidden;
- (BOOL)isHidden;
@end

// For the application that carries the extension, which is compiled here and not linked.
@interface NSApplication (CorvidAdditions)
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy;
@end
