#pragma once

#include "Platform/Interfaces/SystemLog.h"

namespace corvid {

/// Standard error: one line a message, control characters escaped.
class UnixSystemLog final : public SystemLog {
public:
    void log(std::string_view message) override;
};

} // namespace corvid
