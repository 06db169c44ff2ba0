#include "App/Logging/CVMALogFileManager.h"

#include "App/Reporting/CVDDFileLogger.h"
#include "App/Reporting/CVDDLog.h"
#include "Platform/Fake/FakePlatform.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace corvid {
namespace {

using namespace std::chrono;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kLogsDirectory[] = "/home/me/Library/Logs/com.corvid.desktop.widget.FinderExt";

class CVMALogFileManagerTest : public testing::Test {
protected:
    FakePlatform system;

    /// A manager with the base name CVMAExt_4242 whose logger is removed again at the end.
    std::shared_ptr<CVMALogFileManager> manager() {
        return CVMALogFileManager::withBaseName("CVMAExt_4242");
    }
    ~CVMALogFileManagerTest() override { CVDDLog::removeAllLoggers(); }
};

TEST_F(CVMALogFileManagerTest, TheLogsDirectoryIsMadeOnce) {
    EXPECT_EQ(CVMALogFileManager::corvidLogsDir(), kLogsDirectory);
    EXPECT_EQ(CVMALogFileManager::corvidLogsDir(), kLogsDirectory);
    EXPECT_THAT(system.calls.lines(),
                ElementsAre(std::string("createDirectory ") + kLogsDirectory));
}

TEST_F(CVMALogFileManagerTest, ADirectoryThatCannotBeMadeIsToldAndLeftEmpty) {
    system.fileManager.failCreationWith(std::make_error_code(std::errc::read_only_file_system));
    EXPECT_EQ(CVMALogFileManager::corvidLogsDir(), "");
    EXPECT_EQ(system.calls.lines().back(), "systemLog Unable to create directory "
                                           "\"/home/me/Library\": Read-only file system");
}

TEST_F(CVMALogFileManagerTest, AFileInThePlaceOfTheDirectoryIsAFailureToMakeIt) {
    system.fileManager.createDirectoryAtPath("/home/me/Library/Logs");
    system.fileManager.putFile(kLogsDirectory, "");
    EXPECT_EQ(CVMALogFileManager::corvidLogsDir(), "");
    EXPECT_THAT(system.calls.lines().back(), HasSubstr("Unable to create directory "));
}

TEST_F(CVMALogFileManagerTest, WithoutADirectoryNothingIsWrittenForGood) {
    system.fileManager.failCreationWith(std::make_error_code(std::errc::read_only_file_system));
    const auto made = manager();
    EXPECT_EQ(made->logsDirectory(), "");
    system.fileManager.failCreationWith({});
    system.calls.clear();
    CVDDLog::log("line", 1);
    CVDDLog::flushLog();
    EXPECT_TRUE(system.calls.lines().empty());
}

TEST_F(CVMALogFileManagerTest, TheNameHasTheDayBeforeTheMonth) {
    const auto made = manager();
    const struct {
        system_clock::time_point now;
        int minutesEastOfUTC;
        const char* name;
    } cases[] = {
        {sys_days(2026y / November / 16) + 3h + 2min + 5s, 0,
         "CVMAExt_4242_2026_16_11_03_02_05.log"},
        {sys_days(2026y / March / 5) + 14h + 7min + 9s, 0, "CVMAExt_4242_2026_05_03_14_07_09.log"},
        {sys_days(2026y / December / 31) + 23h + 59min + 59s + 999ms, 0,
         "CVMAExt_4242_2026_31_12_23_59_59.log"},
        {sys_days(2026y / December / 31) + 23h + 59min + 59s, 60,
         "CVMAExt_4242_2027_01_01_00_59_59.log"},
        {sys_days(2024y / March / 1) + 1h, -210, "CVMAExt_4242_2024_29_02_21_30_00.log"},
        {sys_days(2026y / July / 1), 345, "CVMAExt_4242_2026_01_07_05_45_00.log"},
    };
    for (const auto& one : cases) {
        system.clock.setNow(one.now);
        system.clock.setTimeZone([&one](auto) { return one.minutesEastOfUTC; });
        EXPECT_EQ(made->newLogFileName(), one.name);
    }
}

TEST_F(CVMALogFileManagerTest, TheNameFollowsTheDaylightSavingChange) {
    const auto made = manager();
    const auto autumn = sys_days(2026y / October / 25) + 1h;
    system.clock.setTimeZone([autumn](auto moment) { return moment < autumn ? 120 : 60; });
    system.clock.setNow(autumn - 1s);
    EXPECT_EQ(made->newLogFileName(), "CVMAExt_4242_2026_25_10_02_59_59.log");
    system.clock.setNow(autumn);
    EXPECT_EQ(made->newLogFileName(), "CVMAExt_4242_2026_25_10_02_00_00.log");
}

TEST_F(CVMALogFileManagerTest, RecognisesItsFilesByTheBeginningAndTheEnd) {
    const auto made = manager();
    const struct {
        std::string_view name;
        bool isLogFile;
    } cases[] = {
        {"CVMAExt_4242_2026_16_11_03_02_05.log", true},
        {"CVMAExt_4242.log", true},
        {"CVMAExt_42429_2026_16_11_03_02_05.log", true},
        {"CVMAExt_4242 anything.log", true},
        {"CVMAExt_4242.txt", false},
        {"CVMAExt_4242", false},
        {"cvmaext_4242_x.log", false},
        {"CVMAExt_4242_x.LOG", false},
        {"CVMAExt_4243_2026_16_11_03_02_05.log", false},
        {"xCVMAExt_4242_x.log", false},
        {"CVMAExt_4242_x.log.gz", false},
        {".log", false},
        {"", false},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(made->isLogFile(one.name), one.isLogFile) << one.name;
    }
}

TEST_F(CVMALogFileManagerTest, TheEnvironmentLimitsNumberAndSize) {
    // The logger itself is CVDDLog's alone, so the size is seen in what it does, further down.
    const struct {
        std::optional<const char*> value;
        std::uint64_t count;
    } cases[] = {
        {std::nullopt, 20},
        {"", 20},
        {"1", 1},
        {"999", 999},
        {"1000", 20},
        {"0", 20},
        {"-5", 20},
        {" 7", 20},
        {"7 ", 20},
        {"+7", 7},
        {"007", 7},
        {"7.0", 20},
        {"7.5", 20},
        {"seven", 20},
        {"+", 20},
        {"-", 20},
        {"+-7", 20},
        {"-+7", 20},
        {"++7", 20},
        {"0x7", 20},
        {"7\n", 20},
        {"1e1", 20},
        {"-0", 20},
        {"+0", 20},
        {"\xD9\xA7", 20},
        {"9223372036854775807", 20},
        {"9223372036854775808", 20},
        {"18446744073709551617", 20},
        {"-9223372036854775809", 20},
    };
    for (const auto& one : cases) {
        one.value.has_value() ? system.processInfo.setEnvironment("CVD_MAX_LOG_COUNT", *one.value)
                              : system.processInfo.unsetEnvironment("CVD_MAX_LOG_COUNT");
        EXPECT_EQ(manager()->maximumNumberOfLogFiles(), one.count) << one.value.value_or("not set");
        CVDDLog::removeAllLoggers();
    }
}

TEST_F(CVMALogFileManagerTest, AFileGrowsToTheSizeOfTheEnvironment) {
    const struct {
        std::optional<const char*> value;
        std::uint64_t size;
    } cases[] = {{std::nullopt, 2'048'000}, {"1", 1'024'000},   {"+3", 3'072'000},
                 {"49", 50'176'000},        {"50", 2'048'000},  {"0", 2'048'000},
                 {"-1", 2'048'000},         {"2.5", 2'048'000}, {" 3", 2'048'000}};
    const std::string message(60'000, 'x');
    for (const auto& one : cases) {
        one.value.has_value() ? system.processInfo.setEnvironment("CVD_MAX_LOG_SIZE", *one.value)
                              : system.processInfo.unsetEnvironment("CVD_MAX_LOG_SIZE");
        system.fileManager.removeTree(kLogsDirectory);
        const auto made = manager();
        for (std::uint64_t written = 0; written <= one.size; written += message.size()) {
            CVDDLog::log(message, 16);
        }
        CVDDLog::removeAllLoggers();
        std::error_code error;
        const auto files = system.fileManager.regularFilesOfDirectoryAtPath(kLogsDirectory, error);
        ASSERT_EQ(files.size(), 2U) << one.value.value_or("not set");
        const std::uint64_t largest = std::max(files[0].size, files[1].size);
        EXPECT_LE(largest, one.size) << one.value.value_or("not set");
        EXPECT_GT(largest + message.size() + 100, one.size) << one.value.value_or("not set");
    }
}

TEST_F(CVMALogFileManagerTest, WritesEveryLevelToItsFirstFile) {
    const auto made = manager();
    EXPECT_EQ(made->logVerbosity().rawValue(), 31);
    for (const std::int32_t flag : {1, 2, 4, 8, 16}) {
        CVDDLog::log("message", flag);
    }
    CVDDLog::flushLog();
    EXPECT_EQ(system.fileManager.contentsOfFile(std::string(kLogsDirectory) +
                                                "/CVMAExt_4242_2026_16_11_03_02_05.log"),
              "2026-11-16 03:02:05.678 +00:00 4242:1 error   message\n"
              "2026-11-16 03:02:05.678 +00:00 4242:1 warn    message\n"
              "2026-11-16 03:02:05.678 +00:00 4242:1 info    message\n"
              "2026-11-16 03:02:05.678 +00:00 4242:1 debug   message\n"
              "2026-11-16 03:02:05.678 +00:00 4242:1 verbose message\n");
}

TEST_F(CVMALogFileManagerTest, AHostileFileNameIsOneLineAndHarmless) {
    const auto made = manager();
    std::string name =
        "/Volumes/Corvid/\n2026-11-16 03:02:05.678 +00:00 1:1 error   forged\r\x1b[2J"
        "\x1b]0;title\x07 \xE2\x80\xAE\xE2\x81\xA6 \xC2\x9B \xFF ";
    name += std::string(4000 - name.size(), '\n');
    for (const char* text :
         {"<UI> Requesting badge for url = ", "<UI> BeginObservingDirectory at : ",
          "<UI> MessagePort: Badge response = "}) {
        CVDDLog::log(text + name, 16);
    }
    CVDDLog::flushLog();
    const std::string contents =
        system.fileManager
            .contentsOfFile(std::string(kLogsDirectory) + "/CVMAExt_4242_2026_16_11_03_02_05.log")
            .value_or("");
    EXPECT_EQ(std::count(contents.begin(), contents.end(), '\n'), 3);
    EXPECT_TRUE(std::all_of(contents.begin(), contents.end(),
                            [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));
    EXPECT_THAT(contents, HasSubstr("/Volumes/Corvid/\\n2026-11-16 03:02:05.678 +00:00 1:1 error"));
}

TEST_F(CVMALogFileManagerTest, RemovingTheLoggerRemovesAll) {
    const auto made = manager();
    const auto other = CVMALogFileManager::withBaseName("other");
    CVDDLog::log("line", 1);
    made->removeLogger();
    const auto contents = [this](const std::string& base) {
        return system.fileManager.contentsOfFile(std::string(kLogsDirectory) + "/" + base +
                                                 "_2026_16_11_03_02_05.log");
    };
    const auto before = contents("CVMAExt_4242");
    EXPECT_THAT(before.value_or(""), HasSubstr("line"));
    EXPECT_THAT(contents("other").value_or(""), HasSubstr("line"));
    CVDDLog::log("after", 1);
    CVDDLog::flushLog();
    EXPECT_EQ(contents("CVMAExt_4242"), before);
}

TEST_F(CVMALogFileManagerTest, AManagerWithoutABaseNameStartsNoLogger) {
    const CVMALogFileManager plain;
    EXPECT_EQ(plain.logVerbosity().rawValue(), 31);
    EXPECT_EQ(plain.logsDirectory(), kLogsDirectory);
    CVDDLog::log("line", 1);
    CVDDLog::flushLog();
    EXPECT_THAT(system.calls.lines(),
                ElementsAre(std::string("createDirectory ") + kLogsDirectory));
}

using CVMALogFileManagerDeathTest = CVMALogFileManagerTest;

TEST_F(CVMALogFileManagerDeathTest, WhatIsTreatedAsImpossibleIsFatal) {
    const CVMALogFileManager plain;
    EXPECT_DEATH((void)plain.newLogFileName(), "fatal: .*without a base name");
    EXPECT_DEATH((void)plain.isLogFile("a.log"), "fatal: .*base name");
    const auto made = manager();
    EXPECT_DEATH((void)made->isLogFile(std::nullopt), "fatal: .*name");
    CVDDLog::removeAllLoggers();
    EXPECT_DEATH(CVMALogFileManager::withLogsDirectory("/tmp"),
                 "fatal: .*init\\(logsDirectory:\\).*CorvidFinderExt.CVMALogFileManager");
    system.fileManager.setApplicationLibraryDirectory(std::nullopt);
    EXPECT_DEATH(CVMALogFileManager::corvidLogsDir(), "fatal: .*library");
    system.fileManager.setApplicationLibraryDirectory("/home/me/Library");
    system.bundle.setBundleIdentifier(std::nullopt);
    EXPECT_DEATH(CVMALogFileManager::corvidLogsDir(), "fatal: .*identifier");
}

} // namespace
} // namespace corvid
