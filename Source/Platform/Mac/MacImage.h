#pragma once

#import <AppKit/AppKit.h>

#include "Core/Archive/Menu.h"
#include "Platform/Mac/Retained.h"

#include <memory>

namespace corvid {

/// A portable image that is an `NSImage`.
class MacImage final : public Image {
public:
    explicit MacImage(Retained<NSImage> image) : image_(std::move(image)) {}

    NSImage* get() const { return image_.get(); }

private:
    const Retained<NSImage> image_;
};

/// The `NSImage` of an image that this platform's Bundle or menus gave out; nil for any other.
/// Borrowed from `image`.
inline NSImage* appKitImage(const std::shared_ptr<Image>& image) {
    const auto* held = dynamic_cast<const MacImage*>(image.get());
    return held != nullptr ? held->get() : nil;
}

} // namespace corvid
