#include "Platform/Fake/FakeClock.h"

#include <utility>

namespace corvid {

std::chrono::system_clock::time_point FakeClock::now() const {
    const MutexLock lock(mutex_);
    return now_;
}

std::chrono::steady_clock::time_point FakeClock::monotonicNow() const {
    const MutexLock lock(mutex_);
    return monotonicNow_;
}

LocalTime FakeClock::localTime(std::chrono::system_clock::time_point moment) const {
    using namespace std::chrono;
    LocalTime local;
    {
        const MutexLock lock(mutex_);
        local.minutesEastOfUTC = timeZone_ ? timeZone_(moment) : 0;
    }
    const auto shown = floor<milliseconds>(moment + minutes(local.minutesEastOfUTC));
    const auto day = floor<days>(shown);
    const year_month_day date(day);
    const hh_mm_ss time(shown - day);
    local.fields.tm_year = static_cast<int>(date.year()) - 1900;
    local.fields.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    local.fields.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    local.fields.tm_hour = static_cast<int>(time.hours().count());
    local.fields.tm_min = static_cast<int>(time.minutes().count());
    local.fields.tm_sec = static_cast<int>(time.seconds().count());
    local.fields.tm_wday = static_cast<int>(weekday(day).c_encoding());
    local.fields.tm_yday = static_cast<int>((day - sys_days(date.year() / January / 1)).count());
    local.milliseconds = static_cast<int>(time.subseconds().count());
    return local;
}

void FakeClock::advance(std::chrono::milliseconds duration) {
    const MutexLock lock(mutex_);
    now_ += duration;
    monotonicNow_ += duration;
}

void FakeClock::setNow(std::chrono::system_clock::time_point moment) {
    const MutexLock lock(mutex_);
    now_ = moment;
}

void FakeClock::setTimeZone(TimeZone minutesEastOfUTC) {
    const MutexLock lock(mutex_);
    timeZone_ = std::move(minutesEastOfUTC);
}

} // namespace corvid
