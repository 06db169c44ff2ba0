#include "Support/BadgeVerdict.h"

#include "Core/Base/VolumeMapping.h"
#include "Core/Utility/Extensions/CVMAStringExtension.h"

namespace corvid {

BadgeVerdict badgeVerdict(const URL& item) {
    const std::string_view text = item.absoluteString();
    if (item.path() == kVolumeRoot) {
        return {false, "the watched folder itself has no badge", std::string(text)};
    }
    if (const auto reason = temporaryItemReason(text)) {
        return {false, *reason, std::string(text)};
    }
    const std::string_view parent = stringByDeletingLastPathComponent(text);
    if (const auto reason = temporaryItemReason(parent)) {
        return {false, *reason, std::string(parent)};
    }
    return {true, {}, std::string(text)};
}

} // namespace corvid
