#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// What a process knows of itself (`NSProcessInfo`).
class ProcessInfo {
public:
    virtual ~ProcessInfo() = default;
    /// The variable's value, read afresh; nothing when it is not set. Any thread.
    virtual std::optional<std::string> environment(std::string_view name) const = 0;
    virtual std::int32_t processIdentifier() const = 0;
    /// The system's number of the calling thread, as its tools show it. Any thread.
    virtual std::uint64_t threadIdentifier() const = 0;
    /// 16 bytes from the system's random source; a failing source is fatal. Any thread.
    virtual std::array<std::uint8_t, 16> randomBytes() = 0;
};

} // namespace corvid
