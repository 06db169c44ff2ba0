#include "Platform/Unix/UnixClock.h"

namespace corvid {

std::chrono::system_clock::time_point UnixClock::now() const {
    return std::chrono::system_clock::now();
}

std::chrono::steady_clock::time_point UnixClock::monotonicNow() const {
    return std::chrono::steady_clock::now();
}

LocalTime UnixClock::localTime(std::chrono::system_clock::time_point moment) const {
    const auto second = std::chrono::floor<std::chrono::seconds>(moment);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(second);
    LocalTime local;
    // localtime_r() need not look at TZ by itself (POSIX, localtime_r).
    tzset();
    localtime_r(&seconds, &local.fields);
    local.milliseconds = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(moment - second).count());
    local.minutesEastOfUTC = static_cast<int>(local.fields.tm_gmtoff / 60);
    return local;
}

} // namespace corvid
