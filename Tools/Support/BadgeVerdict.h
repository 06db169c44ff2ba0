#pragma once

#include "Core/Base/URL.h"

#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// Whether the extension asks the host for an item's badge, and if not, why.
struct BadgeVerdict {
    bool isAsked;
    std::string_view rule; ///< the rule that decided, in words; empty when isAsked
    std::string text;      ///< the text that it decided on: the item's URL, or its parent's
};

/// Decides as the controller does when a file manager asks it for the badge of `item`.
BadgeVerdict badgeVerdict(const URL& item);

} // namespace corvid
