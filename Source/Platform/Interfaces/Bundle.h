#pragma once

#include "Core/Archive/Menu.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// The program's own resources (`NSBundle`). Any thread.
class Bundle {
public:
    virtual ~Bundle() = default;
    /// "com.corvid.desktop.widget.FinderExt" for the extension; nothing when there is none.
    virtual std::optional<std::string> bundleIdentifier() const = 0;
    /// A new object for the picture with this resource name (not a file path); null if missing.
    virtual std::shared_ptr<Image> imageNamed(std::string_view name) const = 0;
    /// The text under `key` in the default string table of the user's language; the key itself
    /// when table or entry is missing.
    virtual std::string localizedString(std::string_view key) const = 0;
};

} // namespace corvid
