#include "App/Reporting/CVLumberjackDefaultLogFormatter.h"

#include "Platform/Fake/FakePlatform.h"

#include <gtest/gtest.h>
#include <locale>
#include <string>

namespace corvid {
namespace {

using namespace std::chrono;

TEST(CVLumberjackDefaultLogFormatter, ThePrefixHasTimeProcessThreadAndLevel) {
    FakePlatform system;
    CVLumberjackDefaultLogFormatter formatter;
    const struct {
        system_clock::time_point moment;
        int minutesEastOfUTC;
        std::uint64_t thread;
        std::int32_t flag;
        const char* prefix;
    } cases[] = {
        {sys_days(2026y / November / 16) + 3h + 2min + 5s + 678ms, 0, 4250, 1,
         "2026-11-16 03:02:05.678 +00:00 4242:4250 error   "},
        {sys_days(2026y / November / 16) + 3h + 2min + 5s + 679ms, 0, 1, 2,
         "2026-11-16 03:02:05.679 +00:00 4242:1 warn    "},
        {sys_days(2026y / December / 31) + 23h + 59min + 59s + 999ms + 999us, 0, 7, 4,
         "2026-12-31 23:59:59.999 +00:00 4242:7 info    "},
        {sys_days(2026y / December / 31) + 23h, 60, 7, 8,
         "2027-01-01 00:00:00.000 +01:00 4242:7 debug   "},
        {sys_days(2027y / January / 1), -210, 18446744073709551615U, 16,
         "2026-12-31 20:30:00.000 -03:30 4242:18446744073709551615 verbose "},
        {sys_days(2027y / January / 1) + 1s + 5ms, 345, 7, 32,
         "2027-01-01 05:45:01.005 +05:45 4242:7 other   "},
    };
    for (const auto& one : cases) {
        system.clock.setTimeZone([&one](auto) { return one.minutesEastOfUTC; });
        EXPECT_EQ(formatter.prefix(one.moment, one.thread, one.flag), one.prefix);
    }
}

/// Groups every two digits, as no log line may be.
class Grouping final : public std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\2"; }
};

TEST(CVLumberjackDefaultLogFormatter, ThePrefixIsTheSameInEveryLocale) {
    FakePlatform system;
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new Grouping));
    CVLumberjackDefaultLogFormatter formatter;
    EXPECT_EQ(formatter.prefix(sys_days(2026y / November / 16) + 3h + 2min + 5s + 678ms, 123456, 1),
              "2026-11-16 03:02:05.678 +00:00 4242:123456 error   ");
    std::locale::global(before);
}

TEST(CVLumberjackDefaultLogFormatter, TheDaylightSavingChangeIsSeenAtItsSecond) {
    FakePlatform system;
    const auto spring = sys_days(2026y / March / 29) + 1h;
    system.clock.setTimeZone([spring](auto moment) { return moment < spring ? 60 : 120; });
    CVLumberjackDefaultLogFormatter formatter;
    EXPECT_EQ(formatter.prefix(spring - 1ms, 1, 1),
              "2026-03-29 01:59:59.999 +01:00 4242:1 error   ");
    EXPECT_EQ(formatter.prefix(spring, 1, 1), "2026-03-29 03:00:00.000 +02:00 4242:1 error   ");
}

TEST(CVLumberjackDefaultLogFormatter, AMessageIsOneLineWhateverItHolds) {
    std::string line = "prefix ";
    CVLumberjackDefaultLogFormatter::appendMessage(
        line, "a\n2026-11-16 03:02:05.678 +00:00 1:1 error   forged \x1b[2J \xE2\x80\xAE end");
    EXPECT_EQ(line, "prefix a\\n2026-11-16 03:02:05.678 +00:00 1:1 error   forged \\x1b[2J "
                    "\\u{202e} end");
}

TEST(CVLumberjackDefaultLogFormatter, WhatIsTooLongIsCutBetweenCharactersAndSaysSo) {
    constexpr std::size_t kLimit = CVLumberjackDefaultLogFormatter::kMaximumMessageSize;
    std::string line;
    CVLumberjackDefaultLogFormatter::appendMessage(line, std::string(kLimit, 'x'));
    EXPECT_EQ(line, std::string(kLimit, 'x'));

    line.clear();
    CVLumberjackDefaultLogFormatter::appendMessage(line, std::string(kLimit + 3, 'x'));
    EXPECT_EQ(line, std::string(kLimit, 'x') + " [3 more bytes]");

    line.clear();
    CVLumberjackDefaultLogFormatter::appendMessage(line, std::string(kLimit - 1, 'x') +
                                                             "\xF0\x9F\x90\xA6");
    EXPECT_EQ(line, std::string(kLimit - 1, 'x') + " [4 more bytes]");

    line.clear();
    CVLumberjackDefaultLogFormatter::appendMessage(line, std::string(kLimit + 1, '\x80'));
    EXPECT_TRUE(line.ends_with("\\x80 [5 more bytes]"));
}

} // namespace
} // namespace corvid
