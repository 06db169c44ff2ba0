// Local time in real time zones.

#include "Platform/Unix/UnixClock.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace corvid {
namespace {

using namespace std::chrono;

std::string shown(system_clock::time_point moment) {
    const LocalTime local = UnixClock().localTime(moment);
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d %+d",
                  local.fields.tm_year + 1900, local.fields.tm_mon + 1, local.fields.tm_mday,
                  local.fields.tm_hour, local.fields.tm_min, local.fields.tm_sec,
                  local.minutesEastOfUTC);
    return text.data();
}

TEST(UnixClock, FollowsTheZoneThroughItsChangesAndTheYearsEnd) {
    const auto spring = sys_days(2026y / March / 29) + 1h;
    const auto autumn = sys_days(2026y / October / 25) + 1h;
    const auto newYear = sys_days(2027y / January / 1);
    // The rules of the zones are written out, so that no time zone database is needed.
    const char* const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char* zone;
        system_clock::time_point moment;
        const char* text;
    } cases[] = {
        {berlin, spring - 1s, "2026-03-29 01:59:59 +60"},
        {berlin, spring, "2026-03-29 03:00:00 +120"},
        {berlin, autumn - 1s, "2026-10-25 02:59:59 +120"},
        {berlin, autumn, "2026-10-25 02:00:00 +60"},
        {berlin, newYear - 1h - 1s, "2026-12-31 23:59:59 +60"},
        {berlin, newYear - 1h, "2027-01-01 00:00:00 +60"},
        {"UTC0", newYear - 1s, "2026-12-31 23:59:59 +0"},
        {"NST3:30", newYear, "2026-12-31 20:30:00 -210"},
        {"NPT-5:45", newYear, "2027-01-01 05:45:00 +345"},
    };
    const char* before = std::getenv("TZ");
    const std::string kept = before != nullptr ? before : "";
    for (const auto& one : cases) {
        setenv("TZ", one.zone, 1);
        EXPECT_EQ(shown(one.moment), one.text) << one.zone;
    }
    before != nullptr ? setenv("TZ", kept.c_str(), 1) : unsetenv("TZ");
    tzset();
}

} // namespace
} // namespace corvid
