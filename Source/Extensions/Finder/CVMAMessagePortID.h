#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace corvid {

/// The names of message ports.
class CVMAMessagePortID {
public:
    enum Value : std::uint8_t {
        /// The host application's port; every request goes there.
        volumekeeper,
        /// The application group; each extension's own port is called by it, "-" and a UUID.
        finderExtension,
    };

    constexpr CVMAMessagePortID(Value value) : value_(value) {}

    /// Nothing for any text but the two raw values, to the letter.
    static constexpr std::optional<CVMAMessagePortID> fromRawValue(std::string_view rawValue) {
        for (const Value value : {volumekeeper, finderExtension}) {
            if (CVMAMessagePortID(value).rawValue() == rawValue) {
                return CVMAMessagePortID(value);
            }
        }
        return std::nullopt;
    }

    constexpr std::string_view rawValue() const {
        // "findesync": host applications expect the name spelt so.
        return value_ == volumekeeper ? "com.corvid.desktop.widget"
                                      : "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync";
    }

    friend constexpr bool operator==(CVMAMessagePortID, CVMAMessagePortID) = default;

private:
    Value value_;
};

} // namespace corvid

template <>
struct std::hash<corvid::CVMAMessagePortID> {
    std::size_t operator()(corvid::CVMAMessagePortID id) const noexcept {
        return std::hash<std::string_view>{}(id.rawValue());
    }
};
