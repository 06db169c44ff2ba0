// How a process ends, and what its log holds then; each case with a process of its own.

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryFolder.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <utility>
#include <vector>

namespace corvid {
namespace {

const std::string kProgram = LOGGING_PROCESS;

std::vector<std::string> steps(std::vector<std::string> steps) {
    steps.insert(steps.begin(), kProgram);
    return steps;
}

std::string logsFolder(const TemporaryFolder& state) {
    return state / "corvid/Logs/com.corvid.desktop.widget.FinderExt";
}

/// The place of a log file among those of its process: the start of its name, then the number that
/// tells files of one second apart. (The day before the month is no matter within one test.)
std::pair<std::string, int> placeOf(const std::filesystem::path& file) {
    constexpr std::size_t kDateLength = 20;
    const std::string name = file.stem().string();
    const std::size_t end = name.find('_', sizeof "CVMAExt_") + kDateLength;
    return {name.substr(0, end), end < name.size() ? std::stoi(name.substr(end + 1)) : 1};
}

/// The lines of all log files; a test failure when one of them is not whole, but for the last.
std::vector<std::string> linesOf(const TemporaryFolder& state, bool lastMayBeCut = false) {
    std::map<std::pair<std::string, int>, std::filesystem::path> files;
    for (const auto& file : std::filesystem::directory_iterator(logsFolder(state))) {
        files[placeOf(file.path())] = file.path();
    }
    std::vector<std::string> lines;
    for (const auto& [place, file] : files) {
        std::ifstream in(file, std::ios::binary);
        std::string line;
        while (std::getline(in, line)) {
            if (in.eof()) {
                EXPECT_TRUE(lastMayBeCut) << "cut: " << line;
                continue;
            }
            lines.push_back(line);
        }
    }
    return lines;
}

/// How many lines each thread has in `lines`, which must be the numbers from 0 on in order.
std::map<int, int> countsInOrder(const std::vector<std::string>& lines) {
    std::map<int, int> counts;
    for (const std::string& line : lines) {
        const std::size_t message = line.find("thread ");
        int thread = -1;
        int number = -1;
        if (message == std::string::npos ||
            std::sscanf(line.c_str() + message, "thread %d line %d", &thread, &number) != 2) {
            ADD_FAILURE() << "not a line of the test: " << line;
            continue;
        }
        EXPECT_EQ(number, counts[thread]) << line;
        ++counts[thread];
    }
    return counts;
}

struct End {
    const char* step;
    int signal; ///< 0: it exits with status 0
};

class LogDurability : public testing::TestWithParam<End> {};

TEST_P(LogDurability, EveryLineIsThereAfterwards) {
    const TemporaryFolder state;
    ChildProcess process(steps({"log:3:2000", GetParam().step}),
                         {{"XDG_STATE_HOME", state.path()}});
    const int status = process.wait();
    if (GetParam().signal == 0) {
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
    } else {
        ASSERT_TRUE(WIFSIGNALED(status)) << process.readErrors();
        EXPECT_EQ(WTERMSIG(status), GetParam().signal);
    }
    EXPECT_EQ(countsInOrder(linesOf(state)), (std::map<int, int>{{0, 2000}, {1, 2000}, {2, 2000}}));
}

INSTANTIATE_TEST_SUITE_P(Ends, LogDurability,
                         testing::Values(End{"return", 0}, End{"exit", 0}, End{"fatal", SIGABRT},
                                         End{"abort", SIGABRT}, End{"throw", SIGABRT},
                                         End{"segv", SIGSEGV}, End{"overflow", SIGSEGV},
                                         End{"overflow-thread", SIGSEGV}),
                         [](const testing::TestParamInfo<End>& end) {
                             std::string name = end.param.step;
                             std::erase(name, '-');
                             return name;
                         });

class LogSignals : public testing::TestWithParam<int> {};

TEST_P(LogSignals, EveryLineIsThereAfterASignalFromOutside) {
    const TemporaryFolder state;
    ChildProcess process(steps({"log:2:1000", "say:logged", "wait"}),
                         {{"XDG_STATE_HOME", state.path()}});
    EXPECT_EQ(process.readLine(), "logged");
    process.signal(GetParam());
    const int status = process.wait();
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), GetParam());
    EXPECT_EQ(countsInOrder(linesOf(state)), (std::map<int, int>{{0, 1000}, {1, 1000}}));
}

INSTANTIATE_TEST_SUITE_P(Signals, LogSignals,
                         testing::Values(SIGTERM, SIGINT, SIGHUP, SIGABRT, SIGSEGV, SIGBUS),
                         [](const testing::TestParamInfo<int>& signal) {
                             return std::string(sigabbrev_np(signal.param));
                         });

TEST(LogDurabilityTest, AnAbortAmidstLoggingLosesNoLineOfTheMiddle) {
    if (std::string_view(CORVID_SANITIZE) == "thread") {
        GTEST_SKIP() << "the sanitizer's own lock, held around every atomic, has the handler wait "
                        "for ever";
    }
    for (int round = 0; round < 20; ++round) {
        const TemporaryFolder state;
        ChildProcess process(steps({"say:start", "log-forever"}),
                             {{"XDG_STATE_HOME", state.path()}});
        EXPECT_EQ(process.readLine(), "start");
        // Some lines later: the folder says when, not a clock.
        while (linesOf(state, true).empty()) {
        }
        process.signal(SIGABRT);
        EXPECT_EQ(WTERMSIG(process.wait()), SIGABRT);
        EXPECT_GT(countsInOrder(linesOf(state))[9], 0);
    }
}

TEST(LogDurabilityTest, AKillLeavesReadableFilesThatLackTheTailAtMost) {
    for (int round = 0; round < 200; ++round) {
        const TemporaryFolder state;
        ChildProcess process(steps({"log:1:500", "flush", "say:flushed", "log-forever"}),
                             {{"XDG_STATE_HOME", state.path()}});
        EXPECT_EQ(process.readLine(), "flushed");
        process.signal(SIGKILL);
        EXPECT_EQ(WTERMSIG(process.wait()), SIGKILL);
        EXPECT_GE(countsInOrder(linesOf(state, true))[0], 500);
    }
}

std::vector<std::filesystem::path> filesOf(const TemporaryFolder& state) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(logsFolder(state))) {
        files.push_back(entry.path());
    }
    return files;
}

TEST(LogDurabilityTest, TheLimitsOfTheEnvironmentHoldAtEveryMoment) {
    constexpr std::uintmax_t kSize = 1'024'000;
    const TemporaryFolder state;
    ChildProcess process(
        steps({"log:1:1", "flush", "say:start", "log:4:25000", "flush", "say:done", "wait"}),
        {{"XDG_STATE_HOME", state.path()}, {"CVD_MAX_LOG_SIZE", "1"}, {"CVD_MAX_LOG_COUNT", "3"}});
    EXPECT_EQ(process.readLine(), "start");
    std::atomic<bool> isDone = false;
    std::thread reader([&] {
        EXPECT_EQ(process.readLine(), "done");
        isDone = true;
    });
    const auto look = [&] {
        const auto files = filesOf(state);
        EXPECT_LE(files.size(), 3U);
        for (const auto& file : files) {
            std::error_code gone;
            const std::uintmax_t size = std::filesystem::file_size(file, gone);
            EXPECT_TRUE(gone || size <= kSize) << file << " " << size;
        }
    };
    while (!isDone) {
        look();
    }
    reader.join();
    look();
    EXPECT_EQ(filesOf(state).size(), 3U);
}

/// The moment that `text` names in a zone that is 05:45 ahead; `format` has six numbers, of which
/// the second and third are swapped when the day stands before the month.
std::time_t momentIn(const std::string& text, const char* format, bool dayFirst) {
    std::tm at{};
    EXPECT_EQ(std::sscanf(text.c_str(), format, &at.tm_year, &at.tm_mon, &at.tm_mday, &at.tm_hour,
                          &at.tm_min, &at.tm_sec),
              6)
        << text;
    if (dayFirst) {
        std::swap(at.tm_mon, at.tm_mday);
    }
    at.tm_year -= 1900;
    at.tm_mon -= 1;
    return timegm(&at) - (5 * 60 + 45) * 60;
}

TEST(LogDurabilityTest, NamesAndLinesHaveTheTimeOfTheUsersZone) {
    const TemporaryFolder state;
    const std::time_t before = std::time(nullptr);
    ChildProcess process(steps({"log:1:1", "return"}),
                         {{"XDG_STATE_HOME", state.path()}, {"TZ", "NPT-5:45"}});
    const std::string base = "CVMAExt_" + std::to_string(process.identifier());
    ASSERT_EQ(process.wait(), 0);
    const std::time_t after = std::time(nullptr);
    const std::string line = linesOf(state).at(0);
    EXPECT_EQ(line.substr(23, 8), " +05:45 ") << line;
    const std::string name = filesOf(state).at(0).filename();
    ASSERT_TRUE(name.starts_with(base)) << name;
    const std::time_t begun = momentIn(name.substr(base.size()), "_%d_%d_%d_%d_%d_%d.log", true);
    const std::time_t logged = momentIn(line, "%d-%d-%d %d:%d:%d.", false);
    EXPECT_LE(before, begun);
    EXPECT_LE(begun, logged);
    EXPECT_LE(logged, after);
}

TEST(LogDurabilityTest, FoldersAndFilesAreTheUsersAlone) {
    const TemporaryFolder state;
    const mode_t before = umask(0);
    ChildProcess process(steps({"log:1:1", "return"}), {{"XDG_STATE_HOME", state.path()}});
    umask(before);
    ASSERT_EQ(process.wait(), 0);
    using std::filesystem::perms;
    for (const char* folder : {"corvid", "corvid/Logs"}) {
        EXPECT_EQ(std::filesystem::status(state / folder).permissions(), perms(0700)) << folder;
    }
    EXPECT_EQ(std::filesystem::status(logsFolder(state)).permissions(), perms(0700));
    for (const auto& file : filesOf(state)) {
        EXPECT_EQ(std::filesystem::status(file).permissions(), perms(0600)) << file;
    }
}

TEST(LogDurabilityTest, WithoutAFolderTheProcessSaysSoOnceAndGoesOnWithoutALog) {
    const TemporaryFolder state;
    std::ofstream(state / "corvid") << "in the way";
    ChildProcess process(steps({"log:2:1000", "flush", "say:alive", "return"}),
                         {{"XDG_STATE_HOME", state.path()}});
    EXPECT_EQ(process.readLine(), "alive");
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.readErrors(),
              "Unable to create directory \"" + state / "corvid" + "\": File exists\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(state.path()), {}), 1);
}

TEST(LogDurabilityTest, AnIdleLoggerNeverWakes) {
    if (std::string_view(CORVID_SANITIZE) == "thread") {
        GTEST_SKIP() << "the sanitizer has a thread of its own that wakes";
    }
    const TemporaryFolder state;
    ChildProcess process(steps({"log:1:10", "flush", "say:idle", "wait", "return"}),
                         {{"XDG_STATE_HOME", state.path()}});
    EXPECT_EQ(process.readLine(), "idle");
    const auto switches = [&process] {
        long total = 0;
        for (const auto& thread : std::filesystem::directory_iterator(
                 "/proc/" + std::to_string(process.identifier()) + "/task")) {
            std::ifstream status(thread.path() / "status");
            for (std::string line; std::getline(status, line);) {
                if (line.starts_with("voluntary_ctxt_switches:")) {
                    total += std::stol(line.substr(24));
                }
            }
        }
        return total;
    };
    // The one place where time itself is what is tested: some while passes without a wake-up. The
    // first ones may still hold the process's way to its rest.
    constexpr int kWindows = 20;
    bool isIdle = false;
    for (int window = 0; window < kWindows && !isIdle; ++window) {
        const long before = switches();
        usleep(10 * 20'000);
        isIdle = switches() == before;
    }
    EXPECT_TRUE(isIdle);
    process.goOn();
    EXPECT_EQ(process.wait(), 0);
}

} // namespace
} // namespace corvid
