#include "Extensions/Finder/CVMAMessageID.h"

#include <array>
#include <cstddef>

namespace corvid {

std::string_view CVMAMessageID::caseName() const {
    static constexpr std::array<std::string_view, 12> kNames = {
        "requestActions", "performAction",   "provideBadge",    "requestBadge",
        "updatePortIDs",  "updatePathCache", "openPreferences", "logout",
        "quit",           "openFeedback",    "openWorkflows",   "openHelp"};
    return kNames[static_cast<std::size_t>(value_ - requestActions)];
}

} // namespace corvid
