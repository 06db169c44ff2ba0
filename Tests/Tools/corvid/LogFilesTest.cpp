#include "Support/LogFiles.h"

#include "Tests/Support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace corvid {
namespace {

using namespace std::chrono;

TEST(LogFiles, AreKnownByTheirNames) {
    const struct {
        const char* name;
        std::optional<pid_t> process;
    } cases[] = {
        {"CVMAExt_42_2026_16_11_03_02_05.log", 42},
        {"CVMAExt_42_2026_16_11_03_02_05_2.log", 42},
        {"CVMAExt_42.log", 42},
        {"CVMAExt_.log", std::nullopt},
        {"CVMAExt_0_x.log", std::nullopt},
        {"CVMAExt_-1_x.log", std::nullopt},
        {"CVMAExt_42x_x.log", std::nullopt},
        {"CVMAExt_99999999999_x.log", std::nullopt},
        {"CVMAExt_42_x.txt", std::nullopt},
        {"cvmaext_42_x.log", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(processOfLogFile(one.name), one.process) << one.name;
    }
}

TEST(LogFiles, ComeInTheOrderInWhichTheyWereBegun) {
    const TemporaryFolder folder;
    const std::string base = "CVMAExt_" + std::to_string(getpid()) + "_2026_16_11_03_02_05";
    for (const char* ending : {".log", "_2.log", "_3.log", "_10.log"}) {
        std::ofstream(folder / (base + ending)) << "line\n";
    }
    std::ofstream(folder / "notes.txt") << "no log file";
    std::vector<std::string> names;
    for (const LogFileInfo& file : logFilesIn(folder.path())) {
        names.push_back(file.name);
        EXPECT_TRUE(file.isRunning);
        EXPECT_EQ(file.size, 5U);
        EXPECT_EQ(file.path, folder / file.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{base + ".log", base + "_2.log", base + "_3.log",
                                               base + "_10.log"}));
}

TEST(LogFiles, AFolderThatIsNotThereHasNone) {
    const TemporaryFolder folder;
    EXPECT_TRUE(logFilesIn(folder / "none").empty());
    std::ofstream(folder / "file") << "";
    EXPECT_THROW(logFilesIn(folder / "file"), std::system_error);
}

std::vector<std::string> pruned(const std::vector<LogFileInfo>& files,
                                std::optional<std::uint64_t> keep, std::optional<int> oldestDay) {
    std::optional<system_clock::time_point> oldest;
    if (oldestDay.has_value()) {
        oldest = sys_days(2026y / January / 1) + days(*oldestDay);
    }
    std::vector<std::string> names;
    for (const LogFileInfo& file : filesToPrune(files, keep, oldest)) {
        names.push_back(file.name);
    }
    return names;
}

TEST(LogFiles, PruningSparesTheNewestAndTheRunning) {
    std::vector<LogFileInfo> files;
    for (const char* name : {"a", "b", "c", "d"}) {
        const auto day = static_cast<int>(files.size());
        files.push_back({name, name, 1, name == std::string("b"), 1,
                         sys_days(2026y / January / 1) + days(day)});
    }
    using Names = std::vector<std::string>;
    EXPECT_EQ(pruned(files, std::nullopt, std::nullopt), Names());
    EXPECT_EQ(pruned(files, 4, std::nullopt), Names());
    EXPECT_EQ(pruned(files, 3, std::nullopt), Names({"a"}));
    EXPECT_EQ(pruned(files, 2, std::nullopt), Names({"a", "c"}));
    EXPECT_EQ(pruned(files, 0, std::nullopt), Names({"a", "c", "d"}));
    EXPECT_EQ(pruned(files, std::nullopt, 0), Names());
    EXPECT_EQ(pruned(files, std::nullopt, 2), Names({"a"}));
    EXPECT_EQ(pruned(files, std::nullopt, 3), Names({"a", "c"}));
    EXPECT_EQ(pruned(files, 1, 1), Names({"a", "c", "d"}));
}

} // namespace
} // namespace corvid
