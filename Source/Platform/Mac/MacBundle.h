#pragma once

#import <Foundation/Foundation.h>

#include "Platform/Interfaces/Bundle.h"
#include "Platform/Mac/Retained.h"

namespace corvid {

/// A bundle's pictures and texts, by `NSBundle`.
class MacBundle final : public Bundle {
public:
    /// Shares `bundle`.
    explicit MacBundle(NSBundle* bundle) : bundle_(Retained<NSBundle>::share(bundle)) {}

    std::optional<std::string> bundleIdentifier() const override;
    std::shared_ptr<Image> imageNamed(std::string_view name) const override;
    std::string localizedString(std::string_view key) const override;

private:
    const Retained<NSBundle> bundle_;
};

} // namespace corvid
