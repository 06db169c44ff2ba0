#import "Platform/Mac/MacPasteboard.h"

#import <AppKit/AppKit.h>

#include "Platform/Mac/FoundationValues.h"

namespace corvid {

void MacPasteboard::declareStringType() {
    @autoreleasepool {
        [[NSPasteboard generalPasteboard]
            declareTypes:[NSArray arrayWithObject:NSPasteboardTypeString]
                   owner:nil];
    }
}

void MacPasteboard::setString(std::string_view text) {
    @autoreleasepool {
        [[NSPasteboard generalPasteboard] setString:foundationString(text)
                                            forType:NSPasteboardTypeString];
    }
}

} // namespace corvid
