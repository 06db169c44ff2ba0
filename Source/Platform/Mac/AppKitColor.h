#pragma once

#import <AppKit/AppKit.h>

#include "Core/Utility/Extensions/FileTypes.h"

namespace corvid {

/// The colour, autoreleased; kGrayColor is the system's own grey. Any thread.
NSColor* appKitColor(const Color& color);

} // namespace corvid
