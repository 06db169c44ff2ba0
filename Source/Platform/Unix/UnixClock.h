#pragma once

#include "Platform/Interfaces/Clock.h"

namespace corvid {

/// The system's clocks and the time zone of the process (`TZ`, else the system's).
class UnixClock final : public Clock {
public:
    std::chrono::system_clock::time_point now() const override;
    std::chrono::steady_clock::time_point monotonicNow() const override;
    LocalTime localTime(std::chrono::system_clock::time_point moment) const override;
};

} // namespace corvid
