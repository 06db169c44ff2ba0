// Many threads, small files, and somebody who watches the folder meanwhile and takes files away.

#include "App/Reporting/CVDDFileLogger.h"
#include "Tests/Support/RealPlatform.h"
#include "Tests/Support/TemporaryFolder.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace corvid {
namespace {

constexpr int kThreads = 8;
constexpr std::uint64_t kFileSize = 64 * 1024;

/// "stress.log", then, by the manager's own count, "stress_2.log" and so on.
class StressFiles final : public CVDDLogFileManagerDefault {
public:
    explicit StressFiles(const std::string& folder) : CVDDLogFileManagerDefault(folder) {}
    std::optional<std::string> newLogFileName() const override { return "stress.log"; }
    bool isLogFile(std::optional<std::string_view> name) const override {
        return name->starts_with("stress");
    }

protected:
    bool mayDelete(std::string_view name) const override { return isLogFile(name); }
};

int numberOf(const std::filesystem::path& file) {
    const std::string stem = file.stem().string();
    const std::size_t underscore = stem.find('_');
    return underscore == std::string::npos ? 1 : std::stoi(stem.substr(underscore + 1));
}

std::vector<std::filesystem::path> filesOf(const std::string& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        files.push_back(entry.path());
    }
    return files;
}

class LogStress : public testing::Test {
protected:
    RealPlatform system;
    TemporaryFolder folder;
    std::shared_ptr<StressFiles> files = std::make_shared<StressFiles>(folder / "logs");
    std::shared_ptr<CVDDFileLogger> logger = std::make_shared<CVDDFileLogger>(files);

    void SetUp() override {
        std::filesystem::create_directory(folder / "away");
        logger->setMaximumFileSize(kFileSize);
    }

    /// Logs `lines` lines from each thread while `watch` is called over and over.
    template <class Watch>
    void logFromAllThreads(int lines, Watch watch) {
        logger->start();
        std::vector<std::thread> threads;
        std::atomic<int> running{kThreads};
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([this, thread, lines, &running] {
                const std::string start = "thread " + std::to_string(thread) + " line ";
                for (int line = 0; line < lines; ++line) {
                    logger->logMessage(start + std::to_string(line), 16);
                }
                --running;
            });
        }
        while (running > 0) {
            watch();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        logger->flush();
        watch();
    }

    /// Sizes at this moment; a file that goes meanwhile has none.
    void expectSizesWithinTheLimit() {
        for (const std::filesystem::path& file : filesOf(folder / "logs")) {
            std::error_code gone;
            const std::uintmax_t size = std::filesystem::file_size(file, gone);
            if (!gone) {
                EXPECT_LE(size, kFileSize) << file;
            }
        }
    }
};

TEST_F(LogStress, EveryLineIsThereOnceAndEachThreadsInOrder) {
    constexpr int kLines = 125'000;
    int takenAway = 0;
    logFromAllThreads(kLines, [this, &takenAway] {
        expectSizesWithinTheLimit();
        const std::vector<std::filesystem::path> present = filesOf(folder / "logs");
        if (present.empty()) {
            return;
        }
        const auto newest =
            *std::max_element(present.begin(), present.end(), [](const auto& a, const auto& b) {
                return numberOf(a) < numberOf(b);
            });
        std::filesystem::rename(newest, folder / ("away/" + newest.filename().string()));
        ++takenAway;
    });
    EXPECT_GT(takenAway, 0);

    std::map<int, std::filesystem::path> inOrder;
    for (const char* name : {"logs", "away"}) {
        for (const std::filesystem::path& file : filesOf(folder / name)) {
            EXPECT_TRUE(inOrder.emplace(numberOf(file), file).second) << file;
        }
    }
    std::vector<int> next(kThreads, 0);
    std::string earlierTime;
    for (const auto& [number, file] : inOrder) {
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            int thread = -1;
            int count = -1;
            const std::size_t message = line.find("thread ");
            ASSERT_NE(message, std::string::npos) << line;
            ASSERT_EQ(std::sscanf(line.c_str() + message, "thread %d line %d", &thread, &count), 2);
            ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
            ASSERT_EQ(count, next[static_cast<std::size_t>(thread)]++) << line;
            const std::string time = line.substr(0, sizeof "2026-11-16 03:02:05.678" - 1);
            ASSERT_LE(earlierTime, time);
            earlierTime = time;
        }
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

TEST_F(LogStress, ThereAreNeverMoreFilesThanAllowed) {
    constexpr std::uint64_t kFiles = 5;
    files->setMaximumNumberOfLogFiles(kFiles);
    std::size_t most = 0;
    logFromAllThreads(25'000, [this, &most] {
        expectSizesWithinTheLimit();
        most = std::max(most, filesOf(folder / "logs").size());
    });
    EXPECT_EQ(most, kFiles);
}

} // namespace
} // namespace corvid
