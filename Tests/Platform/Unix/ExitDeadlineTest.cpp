// Processes that hang, and end in time all the same.

#include "Platform/Unix/ExitDeadline.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryFolder.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace corvid {
namespace {

using testing::HasSubstr;
using namespace std::chrono_literals;

std::vector<std::string> steps(std::vector<std::string> steps) {
    steps.insert(steps.begin(), EXIT_DEADLINE_PROCESS);
    return steps;
}

void expectExit(int status, int expected) {
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), expected);
}

TEST(ExitDeadlineTest, AProcessThatHangsEndsWithTheStatusGivenAndSaysSo) {
    const auto start = std::chrono::steady_clock::now();
    ChildProcess process(steps({"install", "arm:7:300", "hang"}));
    expectExit(process.wait(), 7);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_THAT(process.readErrors(), HasSubstr("exit_deadline_process: the end took too long"));
}

TEST(ExitDeadlineTest, ASignalsHandlerArmsIt) {
    ChildProcess process(steps({"install", "arm-at-term:8:50", "say:ready", "hang"}));
    EXPECT_EQ(process.readLine(), "ready");
    process.signal(SIGTERM);
    expectExit(process.wait(), 8);
}

TEST(ExitDeadlineTest, BlockedSignalsDoNotKeepItFromEnding) {
    ChildProcess process(steps({"install", "arm:7:50", "hang-blocked"}));
    expectExit(process.wait(), 7);
}

TEST(ExitDeadlineTest, ALockThatIsNeverGivenBackDoesNotKeepItFromEnding) {
    ChildProcess process(steps({"install", "arm:7:50", "hang-in-lock"}));
    expectExit(process.wait(), 7);
}

TEST(ExitDeadlineTest, WithoutItsThreadAnAlarmEndsTheProcess) {
    ChildProcess never(steps({"arm:7:50", "hang-blocked"}));
    ChildProcess armedFirst(steps({"arm:7:50", "hang"}));
    expectExit(armedFirst.wait(), 7);
    ChildProcess forked(steps({"install", "fork", "arm:6:50", "hang"}));
    expectExit(forked.wait(), 6);
    // Blocked by all threads, the alarm is not seen: that is what the thread is for.
    EXPECT_EQ(waitpid(never.identifier(), nullptr, WNOHANG), 0);
}

TEST(ExitDeadlineTest, WithoutAFreeThreadAnAlarmEndsTheProcess) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can leave a process without threads";
    }
    ChildProcess process(steps({"spend", "install", "arm:7:50", "hang"}));
    expectExit(process.wait(), 7);
}

TEST(ExitDeadlineTest, TheFirstArmingCounts) {
    ChildProcess process(steps({"install", "arm:7:50", "arm:8:600000", "arm:9:1", "hang"}));
    expectExit(process.wait(), 7);
}

TEST(ExitDeadlineTest, AnOrderlyEndKeepsItsStatus) {
    ChildProcess process(steps({"install", "arm:7:600000", "exit:3"}));
    expectExit(process.wait(), 3);
    EXPECT_EQ(process.readErrors(), "");
}

TEST(ExitDeadlineTest, AFullStandardErrorDoesNotKeepItFromEnding) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const std::string block(4096, 'x');
    while (write(ends[1], block.data(), block.size()) > 0) {
    }
    // The flag is that of the description, which the process shares.
    ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        execl(EXIT_DEADLINE_PROCESS, EXIT_DEADLINE_PROCESS, "install", "arm:7:50", "hang", nullptr);
        _exit(99);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    expectExit(status, 7);
    close(ends[0]);
    close(ends[1]);
}

/// Whether somebody accepts at the socket `path`.
bool accepts(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const bool done = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return done;
}

bool isLocked(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole{};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    EXPECT_EQ(fcntl(fd, F_OFD_GETLK, &whole), 0);
    close(fd);
    return whole.l_type != F_UNLCK;
}

/// What is let go while the process lives on, as one does that has a thread in the kernel.
class LetGo : public testing::TestWithParam<const char*> {};

TEST_P(LetGo, NobodyWaitsForAProcessThatLivesOn) {
    const TemporaryFolder folder;
    // The socket last: its thread takes a descriptor for a moment as it starts.
    ChildProcess process(
        steps({GetParam(), "lock:" + folder / "lock", "listen:" + folder / "socket", "say:ready",
               "wait", "let-go", "hang"}));
    EXPECT_EQ(process.readLine(), "ready");
    EXPECT_TRUE(accepts(folder / "socket"));
    EXPECT_TRUE(isLocked(folder / "lock"));
    process.goOn();
    // Both pipes end.
    EXPECT_EQ(process.readLine(), std::nullopt);
    EXPECT_EQ(process.readErrors(), "");
    // The rest was let go before them.
    EXPECT_FALSE(accepts(folder / "socket"));
    EXPECT_FALSE(isLocked(folder / "lock"));
    EXPECT_EQ(waitpid(process.identifier(), nullptr, WNOHANG), 0);
}

INSTANTIATE_TEST_SUITE_P(Descriptors, LetGo, testing::Values("install", "many", "all"),
                         [](const auto& step) { return std::string(step.param); });

TEST(ExitDeadlineTest, AFatalStateIsBoundedThoughNobodyReadsItsText) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const std::string block(4096, 'x');
    while (write(ends[1], block.data(), block.size()) > 0) {
    }
    ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        execl(EXIT_DEADLINE_PROCESS, EXIT_DEADLINE_PROCESS, "install", "fatal", nullptr);
        _exit(99);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    expectExit(status, 128 + SIGABRT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, ExitDeadline::kDefault);
    close(ends[0]);
    close(ends[1]);
}

TEST(FatalSignalsTest, ManyThreadsThatCrashAtOnceSayTheLastWordsOnce) {
    for (int round = 0; round < 10; ++round) {
        ChildProcess process(steps({"last-words", "crash-together:8"}));
        const int status = process.wait();
        ASSERT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(WTERMSIG(status), SIGSEGV);
        EXPECT_EQ(process.readErrors(), "last words\n");
    }
}

} // namespace
} // namespace corvid
