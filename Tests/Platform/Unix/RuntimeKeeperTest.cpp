// What becomes of a process's names when somebody removes their files: with real processes.

#include "Platform/Unix/MessageFrame.h"
#include "Platform/Unix/PortWatcher.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/VolumeFile.h"
#include "Tests/Support/BytesOf.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryFolder.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::test {

namespace {

using namespace std::chrono_literals;

// As far as it comes: what is removed may be back before the folder is empty.
void removeAll(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

class RuntimeKeeperTest : public testing::Test {
protected:
    RuntimeKeeperTest() {
        setenv("XDG_RUNTIME_DIR", run().c_str(), 1);
        mkdir(run().c_str(), 0700);
    }
    ~RuntimeKeeperTest() override { unsetenv("XDG_RUNTIME_DIR"); }

    /// A process that serves `host`, answers with its number, publishes `volume`, and keeps both.
    static std::unique_ptr<ChildProcess> keeper(const std::string& volume) {
        auto process = std::make_unique<ChildProcess>(
            std::vector<std::string>{CORVID_PORT_PEER, "keep", "host", volume});
        EXPECT_EQ(process->readLine(), "ready");
        return process;
    }
    static std::string textOf(const ChildProcess& process) {
        return std::to_string(process.identifier());
    }
    static void stop(const ChildProcess& process) {
        kill(process.identifier(), SIGSTOP);
        int status = 0;
        waitpid(process.identifier(), &status, WUNTRACED);
        EXPECT_TRUE(WIFSTOPPED(status));
    }

    /// Who answers at `host`; "" for nobody.
    std::string answerer() {
        const MessagePortRef remote = service_.createRemote("host");
        std::optional<Bytes> reply;
        if (remote == nullptr ||
            service_.sendRequest(*remote, 1, {}, 30s, 30s, "mode", &reply) != SendStatus::success) {
            return "";
        }
        return {reply->begin(), reply->end()};
    }
    std::string publishedVolume() const {
        const auto volume = VolumeFile::ofHost(folder()).read();
        return volume ? volume->folder : "";
    }
    /// Asks until `process` answers and `volume` is published; who answered meanwhile, in turn.
    std::vector<std::string> awaitKeeper(const ChildProcess& process, const std::string& volume) {
        std::vector<std::string> answerers;
        const auto end = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < end) {
            const std::string now = answerer();
            if (!now.empty() && (answerers.empty() || answerers.back() != now)) {
                answerers.push_back(now);
            }
            if (now == textOf(process) && publishedVolume() == volume) {
                return answerers;
            }
            poll(nullptr, 0, 1); // Lets the others run.
        }
        ADD_FAILURE() << "not there again after 30 seconds: " << textOf(process);
        return answerers;
    }

    std::string run() const { return temporary_ / "run"; }
    RuntimeFolder folder() const { return RuntimeFolder(run() + "/corvid"); }
    std::string portFile() const { return run() + "/corvid/ports/host"; }

    TemporaryFolder temporary_;
    UnixMessagePortService service_{folder()};
};

} // namespace

TEST_F(RuntimeKeeperTest, putsBackWhateverIsRemoved) {
    const auto process = keeper("/one");
    EXPECT_EQ(answerer(), textOf(*process));
    const std::string corvid = run() + "/corvid";
    const std::map<std::string, std::function<void()>> removals{
        {"socket", [&] { unlink(portFile().c_str()); }},
        {"volume file", [&] { unlink((corvid + "/host.volume").c_str()); }},
        {"volume file replaced",
         [&] {
             std::ofstream(run() + "/other").close();
             rename((run() + "/other").c_str(), (corvid + "/host.volume").c_str());
         }},
        {"ports", [&] { removeAll(corvid + "/ports"); }},
        {"ports moved away", [&] { rename((corvid + "/ports").c_str(), (run() + "/p").c_str()); }},
        {"folder", [&] { removeAll(corvid); }},
        {"folder moved away", [&] { rename(corvid.c_str(), (run() + "/c").c_str()); }},
    };
    for (int i = 0; i < 3; ++i) {
        for (const auto& [what, remove] : removals) {
            SCOPED_TRACE(what);
            remove();
            const auto start = std::chrono::steady_clock::now();
            EXPECT_THAT(awaitKeeper(*process, "/one"), testing::ElementsAre(textOf(*process)));
            // It is told, and does not look now and then.
            RecordProperty("ms until back, " + what,
                           std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::steady_clock::now() - start)
                                              .count()));
            removeAll(run() + "/p");
            removeAll(run() + "/c");
        }
    }
    // And what it put back is its own: it goes with it.
    process->goOn();
    EXPECT_EQ(WEXITSTATUS(process->wait()), 0);
    EXPECT_FALSE(std::filesystem::exists(portFile()));
    EXPECT_EQ(publishedVolume(), "");
}

TEST_F(RuntimeKeeperTest, putsAllBackWhenTheFolderAboveComesBack) {
    const auto process = keeper("/one");
    removeAll(run());
    EXPECT_EQ(answerer(), "");
    mkdir(run().c_str(), 0700);
    EXPECT_THAT(awaitKeeper(*process, "/one"), testing::ElementsAre(textOf(*process)));
}

TEST_F(RuntimeKeeperTest, messagesThatWaitAtTheOldSocketAreAnswered) {
    const auto process = keeper("/one");
    stop(*process);
    const PortFolder ports(folder());
    FrameHeader header;
    header.wantsReply = true;
    const auto frame = encodedHeader(header);
    std::vector<PortFolder::Connection> waiting;
    for (int i = 0; i < 40; ++i) {
        waiting.push_back(ports.connect("host", std::nullopt));
        ASSERT_EQ(waiting.back().result, PortFolder::ConnectResult::connected);
        ASSERT_EQ(send(waiting.back().fd.get(), frame.data(), frame.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(frame.size()));
    }
    unlink(portFile().c_str());
    process->signal(SIGCONT);
    for (const auto& connection : waiting) {
        pollfd entry{connection.fd.get(), POLLIN, 0};
        ASSERT_EQ(poll(&entry, 1, 30'000), 1);
        char first = 0;
        EXPECT_EQ(recv(entry.fd, &first, 1, 0), 1);
    }
    awaitKeeper(*process, "/one");
}

TEST_F(RuntimeKeeperTest, givesWayToWhoTookTheNameMeanwhileAndTakesItAgainAfterwards) {
    const auto first = keeper("/one");
    EXPECT_EQ(answerer(), textOf(*first));
    stop(*first);
    removeAll(run() + "/corvid");
    auto second = keeper("/two");
    EXPECT_EQ(answerer(), textOf(*second));
    first->signal(SIGCONT);
    // It says who has what.
    const std::string said = first->readLine().value_or("");
    EXPECT_THAT(said,
                testing::HasSubstr("host.volume was removed, and process " + textOf(*second)));
    EXPECT_THAT(said, testing::HasSubstr("the socket of the port host was removed, and process " +
                                         textOf(*second)));
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(answerer(), textOf(*second));
        EXPECT_EQ(publishedVolume(), "/two");
    }
    second->signal(SIGKILL);
    second->wait();
    EXPECT_THAT(awaitKeeper(*first, "/one"), testing::ElementsAre(textOf(*first)));
    EXPECT_EQ(first->readLine(), "all is well");
}

// Many start and many remove: whoever has the name, from the moment that one has answered on no
// other does until that one has lost it.
TEST_F(RuntimeKeeperTest, noTwoOwnersAnswerInTurnForOneName) {
    std::vector<std::unique_ptr<ChildProcess>> processes;
    processes.push_back(keeper("/one"));
    for (int i = 0; i < 2; ++i) {
        stop(*processes.back());
        removeAll(run() + "/corvid");
        processes.push_back(keeper("/one"));
    }
    for (const auto& process : processes) {
        process->signal(SIGCONT);
    }
    for (int i = 0; i < 20; ++i) {
        // All three race for it.
        removeAll(run() + "/corvid");
        std::vector<std::string> answerers;
        const auto end = std::chrono::steady_clock::now() + 30s;
        for (int answers = 0; answers < 20 && std::chrono::steady_clock::now() < end;) {
            const std::string now = answerer();
            if (now.empty()) {
                poll(nullptr, 0, 1);
                continue;
            }
            ++answers;
            if (answerers.empty() || answerers.back() != now) {
                answerers.push_back(now);
            }
        }
        EXPECT_EQ(answerers.size(), 1U) << testing::PrintToString(answerers);
    }
}

TEST_F(RuntimeKeeperTest, keepsItsNamesWithoutInotifyToo) {
    ChildProcess process({CORVID_PORT_PEER, "keep-without-inotify", "host", "/one"});
    const std::string word = process.readLine().value_or("");
    if (word != "ready") {
        GTEST_SKIP() << "inotify cannot be taken from a process here: " << word;
    }
    // It says so, and what to do.
    EXPECT_THAT(process.readLine().value_or(""),
                testing::AllOf(testing::HasSubstr("looked for every 2 seconds"),
                               testing::HasSubstr("fs.inotify.max_user_instances")));
    removeAll(run() + "/corvid");
    EXPECT_THAT(awaitKeeper(process, "/one"), testing::ElementsAre(textOf(process)));
    // The limit is lifted, and it is told of changes again.
    process.goOn("lift");
    EXPECT_EQ(process.readLine(), "all is well");
    unlink(portFile().c_str());
    awaitKeeper(process, "/one");
}

} // namespace corvid::test
