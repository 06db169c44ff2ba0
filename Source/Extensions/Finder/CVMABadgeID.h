#pragma once

#include "Core/Archive/Menu.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace corvid {

/// The state of an item, shown as a badge. The raw value is the enumerator's name; it is what
/// travels between the processes and what the file manager knows the badge by.
class CVMABadgeID {
public:
    enum Value : std::uint8_t {
        cloud,
        inProgress,
        checkedOut,
        finishedTransfer,
        error,
        accessDenied,
        synced,
        syncedpartial,
        none,
    };

    constexpr CVMABadgeID(Value value) : value_(value) {}

    /// For a switch, and for tables indexed by badge.
    constexpr Value value() const { return value_; }

    /// Nothing for any text but the nine raw values, to the letter.
    static std::optional<CVMABadgeID> fromRawValue(std::string_view rawValue);

    std::string_view rawValue() const;

    /// The badges that a file manager registers, in order: all but `none`.
    static const std::array<CVMABadgeID, 8>& allValues();

    /// The name of the picture among the bundle's resources; nothing for `none`.
    std::optional<std::string_view> imageResourceName() const;

    /// A new object for the picture; null for `none`, and when the bundle lacks the resource.
    std::shared_ptr<Image> image() const;

    /// What people read, in English; nothing for `none`.
    std::optional<std::string_view> label() const;

    friend constexpr bool operator==(CVMABadgeID, CVMABadgeID) = default;

private:
    struct Row;
    const Row& row() const;

    Value value_;
};

} // namespace corvid

template <>
struct std::hash<corvid::CVMABadgeID> {
    std::size_t operator()(corvid::CVMABadgeID badge) const noexcept {
        return std::hash<std::string_view>{}(badge.rawValue());
    }
};
