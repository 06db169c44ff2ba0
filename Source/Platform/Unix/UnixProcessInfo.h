#pragma once

#include "Platform/Interfaces/ProcessInfo.h"

namespace corvid {

/// The running process, asked of the system.
class UnixProcessInfo final : public ProcessInfo {
public:
    std::optional<std::string> environment(std::string_view name) const override;
    std::int32_t processIdentifier() const override;
    std::uint64_t threadIdentifier() const override;
    std::array<std::uint8_t, 16> randomBytes() override;
};

} // namespace corvid
