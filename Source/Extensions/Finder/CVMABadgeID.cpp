#include "Extensions/Finder/CVMABadgeID.h"

#include "Platform/Interfaces/Platform.h"

#include <cstddef>

namespace corvid {

struct CVMABadgeID::Row {
    std::string_view rawValue;
    std::string_view label;
    std::string_view imageResourceName;
};

const CVMABadgeID::Row& CVMABadgeID::row() const {
    // In the order of the enumerators. "syncedpartial" alone is not camel case, and
    // finishedTransfer has the picture of synced: hosts and resources rely on both.
    static constexpr std::array<Row, 9> kRows = {{
        {"cloud", "Cloud", "Cloud_icon_16"},
        {"inProgress", "In Progress", "FinderSyncExtensionIcons_syncing.icns"},
        {"checkedOut", "Checked Out", "FinderSyncExtensionIcons_checkout.icns"},
        {"finishedTransfer", "Finished Transfer", "FinderSyncExtensionIcons_synced.icns"},
        {"error", "Error", "FinderSyncExtensionIcons_error.icns"},
        {"accessDenied", "Access Denied", "FinderSyncExtensionIcons_accessdenied.icns"},
        {"synced", "Synced", "FinderSyncExtensionIcons_synced.icns"},
        {"syncedpartial", "Synced Partial", "FinderSyncExtensionIcons_syncedpartial.icns"},
        {"none", {}, {}},
    }};
    return kRows[static_cast<std::size_t>(value_)];
}

std::optional<CVMABadgeID> CVMABadgeID::fromRawValue(std::string_view rawValue) {
    for (std::uint8_t value = cloud; value <= none; ++value) {
        const CVMABadgeID badge(static_cast<Value>(value));
        if (badge.rawValue() == rawValue) {
            return badge;
        }
    }
    return std::nullopt;
}

std::string_view CVMABadgeID::rawValue() const {
    return row().rawValue;
}

const std::array<CVMABadgeID, 8>& CVMABadgeID::allValues() {
    static const std::array<CVMABadgeID, 8> kAll = {
        cloud, inProgress,   checkedOut, finishedTransfer,
        error, accessDenied, synced,     syncedpartial};
    return kAll;
}

std::optional<std::string_view> CVMABadgeID::imageResourceName() const {
    if (value_ == none) {
        return std::nullopt;
    }
    return row().imageResourceName;
}

std::shared_ptr<Image> CVMABadgeID::image() const {
    const auto name = imageResourceName();
    return name ? platform().mainBundle.imageNamed(*name) : nullptr;
}

std::optional<std::string_view> CVMABadgeID::label() const {
    if (value_ == none) {
        return std::nullopt;
    }
    return row().label;
}

} // namespace corvid
