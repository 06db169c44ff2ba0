#pragma once

#include <chrono>
#include <ctime>

namespace corvid {

/// A moment in the local time zone.
struct LocalTime {
    std::tm fields{};         ///< Gregorian calendar
    int milliseconds = 0;     ///< 0 to 999
    int minutesEastOfUTC = 0; ///< with daylight saving, if it holds at that moment
};

/// The system's clocks. Any thread.
class Clock {
public:
    virtual ~Clock() = default;
    /// May be set back and forth by the user.
    virtual std::chrono::system_clock::time_point now() const = 0;
    /// Never goes back; for deadlines and ages.
    virtual std::chrono::steady_clock::time_point monotonicNow() const = 0;
    virtual LocalTime localTime(std::chrono::system_clock::time_point moment) const = 0;
};

} // namespace corvid
