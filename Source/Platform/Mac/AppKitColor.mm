#import "Platform/Mac/AppKitColor.h"

namespace corvid {

NSColor* appKitColor(const Color& color) {
    if (color == kGrayColor) {
        return [NSColor grayColor];
    }
    return [NSColor colorWithRed:color.red green:color.green blue:color.blue alpha:color.alpha];
}

} // namespace corvid
