// How a front end starts the extension: programs that hang, and that go wrong in other ways.

#include "Extensions/FileManagers/Link/LinkClient.h"
#include "Tests/Extensions/FileManagers/Link/PlayedExtension.h"
#include "Tests/Support/HeldCalls.h"
#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace corvid::link {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr std::chrono::seconds kPatience{60};
/// What a call on a file manager's main thread may take; it is far less.
constexpr std::chrono::milliseconds kMomentAtMost{1000};

class FrontEnd : private LinkClient::Delegate {
public:
    FrontEnd(const RuntimeFolder& folder, const std::string& program,
             std::chrono::milliseconds startPatience = kPatience,
             std::chrono::milliseconds firstPause = std::chrono::milliseconds(50))
        : client(*this, {"test",
                         program,
                         {},
                         kOldestVersion,
                         kNewestVersion,
                         folder,
                         firstPause,
                         startPatience}) {
        timed([this] { client.open(); });
    }

    /// Pumps until `isDone`, and holds each call of the client against what it may take.
    void until(const std::function<bool()>& isDone) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!isDone()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline)
                << ::testing::PrintToString(losses);
            // Not only when there is something: what is waited for may be a file.
            pollfd fd{client.fd(), POLLIN, 0};
            if (::poll(&fd, 1, 10) > 0) {
                timed([this] { client.dispatch(); });
            }
        }
    }

    LinkClient client;
    std::vector<std::string> losses;
    int ups = 0;

private:
    static void timed(const std::function<void()>& call) {
        const auto begin = std::chrono::steady_clock::now();
        call();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, kMomentAtMost);
    }
    void linkUp() override { ++ups; }
    void linkDown(const std::string& reason) override { losses.push_back(reason); }
    void linkRefused(const std::string& /*reason*/) override {}
    void received(Message /*message*/) override {}
    void woken() override {}
};

class ExtensionStartTest : public ::testing::Test {
protected:
    /// A program that notes its process, and then does what `script` says; the start pipe is its
    /// descriptor 3.
    std::string program(const std::string& script) {
        std::filesystem::path path = scratch_ / "extension";
        std::ofstream(path) << "#!/bin/sh\necho $$ >> " << (scratch_ / "started") << "\n"
                            << script << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }
    /// Those that were started, the first one first.
    std::vector<pid_t> started() {
        std::vector<pid_t> all;
        std::ifstream file(scratch_ / "started");
        for (pid_t process = 0; file >> process;) {
            all.push_back(process);
        }
        return all;
    }
    /// Whether the system knows the process no more, not even as one that nobody has waited for.
    static bool hasGone(pid_t process) { return ::kill(process, 0) != 0 && errno == ESRCH; }

    TemporaryFolder scratch_;
    RuntimeFolder folder_{scratch_ / "corvid"};
};

} // namespace

TEST_F(ExtensionStartTest, AProgramThatHangsAtItsStartIsEndedAndStartedAgain) {
    FrontEnd frontEnd(folder_, program("exec sleep 1000"), std::chrono::milliseconds(300));
    frontEnd.until([&] { return frontEnd.losses.size() >= 2; });
    EXPECT_THAT(frontEnd.losses,
                Contains(AllOf(HasSubstr("extension was started"), HasSubstr("It was ended"))));
    frontEnd.until([&] { return started().size() >= 2 && hasGone(started().front()); });
}

TEST_F(ExtensionStartTest, AProgramThatHangsInTheBackgroundIsEnded) {
    FrontEnd frontEnd(folder_,
                      program("sleep 1000 & echo $! > " + (scratch_ / "background") + "; exit 0"),
                      std::chrono::seconds(1));
    pid_t background = 0;
    frontEnd.until(
        [&] { return std::ifstream(scratch_ / "background") >> background && background != 0; });
    frontEnd.until([&] { return !frontEnd.losses.empty() && hasGone(started().front()); });
    // It is nobody's child here, so whoever has taken it over is given time to wait for it.
    frontEnd.until([&] {
        std::string state;
        std::ifstream status("/proc/" + std::to_string(background) + "/stat");
        return hasGone(background) || !(status >> state >> state >> state) || state == "Z";
    });
}

TEST_F(ExtensionStartTest, AProgramThatFailsAndStaysIsEnded) {
    FrontEnd frontEnd(folder_,
                      program("printf 'The disk is full.' >&3; exec 3>&-; exec sleep 1000"));
    frontEnd.until([&] { return !frontEnd.losses.empty(); });
    EXPECT_EQ(frontEnd.losses.front(), "The disk is full.");
    frontEnd.until([&] { return hasGone(started().front()); });
}

TEST_F(ExtensionStartTest, AProgramThatRunsInTheForegroundIsHadAndReapedLater) {
    PlayedExtension extension(folder_);
    std::filesystem::rename(scratch_ / "corvid", scratch_ / "elsewhere");
    // The socket is there when the program says so, as that of the extension is.
    FrontEnd frontEnd(folder_,
                      program("mv " + (scratch_ / "elsewhere") + " " + (scratch_ / "corvid") +
                              "; printf ready >&3; exec 3>&-; exec sleep 1000"));
    while (!extension.isCalled()) {
        frontEnd.until([&] { return extension.isCalled(); });
    }
    extension.accept();
    extension.hear<Hello>();
    extension.say(Welcome{});
    frontEnd.until([&] { return frontEnd.ups == 1; });
    EXPECT_FALSE(hasGone(started().front()));
    ::kill(started().front(), SIGKILL);
    frontEnd.until([&] { return hasGone(started().front()); });
    EXPECT_TRUE(frontEnd.client.isUp());
}

TEST_F(ExtensionStartTest, AProgramOnADiskThatDoesNotAnswerHoldsUpNobody) {
    bool isPossible = true;
    // Its calls of execve() stay held up for ever.
    std::thread([&] {
        HeldCalls held(SYS_execve);
        isPossible = held.work();
        if (!isPossible) {
            return;
        }
        FrontEnd hung(folder_, "/bin/true", std::chrono::milliseconds(300));
        EXPECT_TRUE(held.waitForOne());
        hung.until([&] { return hung.losses.size() >= 3; });
        EXPECT_THAT(hung.losses.front(), HasSubstr("It was ended"));
        // One at a time: the next ones would hang as well.
        EXPECT_THAT(hung.losses[1], HasSubstr("was started earlier"));
        EXPECT_THAT(hung.losses[2], HasSubstr("was started earlier"));
    }).join();
    if (!isPossible) {
        GTEST_SKIP() << "the system does not let calls be held up";
    }
}

TEST_F(ExtensionStartTest, AProgramThatComesToRunLateIsHad) {
    PlayedExtension extension(folder_);
    std::filesystem::rename(scratch_ / "corvid", scratch_ / "elsewhere");
    // In a session of its own it is not ended with the others.
    FrontEnd frontEnd(folder_,
                      program("setsid sh -c 'while ! test -e " + (scratch_ / "go") +
                              "; do sleep 0.01; done; mv " + (scratch_ / "elsewhere") + " " +
                              (scratch_ / "corvid") + "; printf ready >&3' &"),
                      std::chrono::seconds(1), std::chrono::hours(1));
    frontEnd.until([&] { return !frontEnd.losses.empty(); });
    std::ofstream(scratch_ / "go").flush();
    while (!extension.isCalled()) {
        frontEnd.until([&] { return extension.isCalled(); });
    }
    EXPECT_THAT(frontEnd.losses, SizeIs(1));
    EXPECT_THAT(started(), SizeIs(1));
}

TEST_F(ExtensionStartTest, AnExtensionThatTakesNoMoreConnectionsIsNotStartedASecondTime) {
    PlayedExtension extension(folder_);
    const RuntimeFolder::Opened opened = folder_.open(RuntimeFolder::IfMissing::fail);
    std::vector<OwnedFd> queued;
    do {
        queued.push_back(connectIn(opened.fd.get()));
        ASSERT_LT(queued.size(), 10'000U);
    } while (queued.back());
    EXPECT_EQ(errno, EAGAIN);
    FrontEnd frontEnd(folder_, program("printf ready >&3"));
    frontEnd.until([&] { return frontEnd.losses.size() >= 3; });
    EXPECT_THAT(frontEnd.losses.back(), HasSubstr("takes no more connections"));
    EXPECT_THAT(started(), SizeIs(0));
}

} // namespace corvid::link
