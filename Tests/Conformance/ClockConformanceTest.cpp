// What every Clock and ProcessInfo must do: the system's and the one that a test moves.

#include "Platform/Fake/FakeClock.h"
#include "Platform/Fake/FakeProcessInfo.h"
#include "Platform/Unix/UnixClock.h"
#include "Platform/Unix/UnixProcessInfo.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace corvid {
namespace {

using namespace std::chrono;

template <class Implementation>
class ClockConformance : public testing::Test {
protected:
    Implementation clock;
};

using Clocks = testing::Types<UnixClock, FakeClock>;
TYPED_TEST_SUITE(ClockConformance, Clocks);

TYPED_TEST(ClockConformance, TheMonotonicClockNeverGoesBack) {
    const auto before = this->clock.monotonicNow();
    EXPECT_GE(this->clock.monotonicNow(), before);
}

TYPED_TEST(ClockConformance, LocalTimeAndOffsetMakeTheMoment) {
    const system_clock::time_point moments[] = {
        this->clock.now(),
        sys_days(2026y / November / 16) + 3h + 2min + 5s + 678ms,
        sys_days(2024y / February / 29) + 23h + 59min + 59s + 999ms,
        sys_days(2026y / December / 31) + 23h + 59min + 59s,
        sys_days(2027y / January / 1),
        sys_days(1969y / December / 31) + 23h + 59min + 59s + 1ms,
        sys_days(2038y / January / 20),
    };
    for (const system_clock::time_point moment : moments) {
        const LocalTime local = this->clock.localTime(moment);
        const std::tm& at = local.fields;
        const auto date = year(at.tm_year + 1900) / month(static_cast<unsigned>(at.tm_mon + 1)) /
                          day(static_cast<unsigned>(at.tm_mday));
        const auto utc = sys_days(date) + hours(at.tm_hour) + minutes(at.tm_min) +
                         seconds(at.tm_sec) + milliseconds(local.milliseconds) -
                         minutes(local.minutesEastOfUTC);
        EXPECT_EQ(utc, floor<milliseconds>(moment));
        EXPECT_GE(local.milliseconds, 0);
        EXPECT_LE(local.milliseconds, 999);
        EXPECT_EQ(at.tm_wday, static_cast<int>(weekday(sys_days(date)).c_encoding()));
        EXPECT_EQ(at.tm_yday, (sys_days(date) - sys_days(date.year() / January / 1)).count());
    }
}

struct RealProcess {
    UnixProcessInfo info;
    static void set(const char* name, const char* value) { setenv(name, value, 1); }
    static void unset(const char* name) { unsetenv(name); }
};

struct FakeProcess {
    FakeProcessInfo info;
    void set(const char* name, const char* value) { info.setEnvironment(name, value); }
    void unset(const char* name) { info.unsetEnvironment(name); }
};

template <class Implementation>
class ProcessInfoConformance : public testing::Test {
protected:
    Implementation process;
};

using Processes = testing::Types<RealProcess, FakeProcess>;
TYPED_TEST_SUITE(ProcessInfoConformance, Processes);

TYPED_TEST(ProcessInfoConformance, ReadsTheEnvironmentAfresh) {
    ProcessInfo& info = this->process.info;
    this->process.unset("CORVID_TEST_VARIABLE");
    EXPECT_EQ(info.environment("CORVID_TEST_VARIABLE"), std::nullopt);
    this->process.set("CORVID_TEST_VARIABLE", "");
    EXPECT_EQ(info.environment("CORVID_TEST_VARIABLE"), "");
    this->process.set("CORVID_TEST_VARIABLE", " a=b ");
    EXPECT_EQ(info.environment("CORVID_TEST_VARIABLE"), " a=b ");
    EXPECT_EQ(info.environment(std::string_view("CORVID_TEST_VARIABLE_").substr(0, 20)), " a=b ");
    this->process.unset("CORVID_TEST_VARIABLE");
    EXPECT_EQ(info.environment("CORVID_TEST_VARIABLE"), std::nullopt);
}

TYPED_TEST(ProcessInfoConformance, KnowsItsNumbers) {
    EXPECT_GT(this->process.info.processIdentifier(), 0);
    EXPECT_GT(this->process.info.threadIdentifier(), 0U);
}

TYPED_TEST(ProcessInfoConformance, DrawsOtherBytesEveryTime) {
    const auto first = this->process.info.randomBytes();
    EXPECT_NE(this->process.info.randomBytes(), first);
}

} // namespace
} // namespace corvid
