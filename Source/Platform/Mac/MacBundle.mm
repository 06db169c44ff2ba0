#import "Platform/Mac/MacBundle.h"

#import <AppKit/AppKit.h>

#include "Platform/Mac/FoundationValues.h"
#include "Platform/Mac/MacImage.h"

namespace corvid {

std::optional<std::string> MacBundle::bundleIdentifier() const {
    @autoreleasepool {
        NSString* identifier = [bundle_.get() bundleIdentifier];
        return identifier != nil ? std::optional(utf8String(identifier)) : std::nullopt;
    }
}

std::shared_ptr<Image> MacBundle::imageNamed(std::string_view name) const {
    if (name.empty()) {
        return nullptr;
    }
    @autoreleasepool {
        // Not +[NSImage imageNamed:], which gives the same object each time.
        NSString* path = [bundle_.get() pathForImageResource:foundationString(name)];
        auto picture = path != nil
                           ? Retained<NSImage>::adopt([[NSImage alloc] initWithContentsOfFile:path])
                           : Retained<NSImage>();
        if (picture.get() == nil) {
            return nullptr;
        }
        auto image = std::make_shared<MacImage>(std::move(picture));
        image->name = name;
        image->path = utf8String(path);
        return image;
    }
}

std::string MacBundle::localizedString(std::string_view key) const {
    @autoreleasepool {
        // As NSLocalizedString() asks: no value of its own, the default table.
        return utf8String([bundle_.get() localizedStringForKey:foundationString(key)
                                                         value:@""
                                                         table:nil]);
    }
}

} // namespace corvid
