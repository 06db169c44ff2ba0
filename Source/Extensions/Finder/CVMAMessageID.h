#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace corvid {

/// What a message means. The numbers are a contract with every host application and never change;
/// 7 to 12 belong to the shared numbering, though the extension neither sends nor handles them.
class CVMAMessageID {
public:
    enum Value : std::int32_t {
        requestActions = 1,
        performAction = 2,
        provideBadge = 3,
        requestBadge = 4,
        updatePortIDs = 5,
        updatePathCache = 6,
        openPreferences = 7,
        logout = 8,
        quit = 9,
        openFeedback = 10,
        openWorkflows = 11,
        openHelp = 12,
    };

    // Implicit on purpose: the enumerators are the values of this type.
    constexpr CVMAMessageID(Value value) : value_(value) {}

    /// Nothing for any number outside 1 to 12.
    static constexpr std::optional<CVMAMessageID> fromRawValue(std::int32_t rawValue) {
        if (rawValue < requestActions || rawValue > openHelp) {
            return std::nullopt;
        }
        return CVMAMessageID(static_cast<Value>(rawValue));
    }

    constexpr std::int32_t rawValue() const { return value_; }

    /// The enumerator's name, such as "requestBadge", for log lines.
    std::string_view caseName() const;

    friend constexpr bool operator==(CVMAMessageID, CVMAMessageID) = default;

private:
    Value value_;
};

} // namespace corvid

template <>
struct std::hash<corvid::CVMAMessageID> {
    std::size_t operator()(corvid::CVMAMessageID id) const noexcept {
        return std::hash<std::int32_t>{}(id.rawValue());
    }
};
