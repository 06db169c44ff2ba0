#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/Clock.h"

#include <functional>

namespace corvid {

/// A clock that stands still until the test moves it, in a time zone that the test sets.
/// It starts at 03:02:05.678 UTC on 16 November 2026. Any thread.
class FakeClock final : public Clock {
public:
    std::chrono::system_clock::time_point now() const override;
    std::chrono::steady_clock::time_point monotonicNow() const override;
    LocalTime localTime(std::chrono::system_clock::time_point moment) const override;

    /// Moves both clocks on.
    void advance(std::chrono::milliseconds duration);
    /// Sets the wall clock, as a user does; the monotonic one goes on as before.
    void setNow(std::chrono::system_clock::time_point moment);
    /// A time zone: the minutes east of UTC that hold at a moment.
    using TimeZone = std::function<int(std::chrono::system_clock::time_point moment)>;
    void setTimeZone(TimeZone minutesEastOfUTC);

private:
    mutable Mutex mutex_;
    std::chrono::system_clock::time_point now_ CORVID_GUARDED_BY(mutex_){
        std::chrono::milliseconds(1'794'798'125'678)};
    std::chrono::steady_clock::time_point monotonicNow_ CORVID_GUARDED_BY(mutex_){
        std::chrono::hours(1)};
    TimeZone timeZone_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
