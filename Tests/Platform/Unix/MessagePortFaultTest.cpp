// What a caller gets when its peer is absent, hung, killed, broken or hostile: each with a real
// process, through the calls that the extension makes, and always followed by a request that works.

#include "Extensions/Finder/CVMAMessagePort.h"
#include "Platform/Unix/MessageFrame.h"
#include "Platform/Unix/VolumeFile.h"
#include "Tests/Support/BytesOf.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/RealPlatform.h"
#include "Tests/Support/RecordingReportingService.h"
#include "Tests/Support/RestlessClock.h"
#include "Tests/Support/SmallDisk.h"
#include "Tests/Support/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <map>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace corvid::test {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kAbsent = "<UI> MessagePort: Unable to open server port";
const std::string kFailed =
    "<UI> MessagePort: Error sending message with messageID = requestBadge to portname = host";

// What a busy machine may add to a deadline.
constexpr auto kSlack = 15s;

class MessagePortFaultTest : public testing::Test {
protected:
    MessagePortFaultTest() { setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1); }
    ~MessagePortFaultTest() override { unsetenv("XDG_RUNTIME_DIR"); }

    static std::unique_ptr<ChildProcess> peer(std::vector<std::string> words) {
        words.insert(words.begin(), CORVID_PORT_PEER);
        auto process = std::make_unique<ChildProcess>(std::move(words));
        return process;
    }
    static std::unique_ptr<ChildProcess> readyPeer(std::vector<std::string> words) {
        auto process = peer(std::move(words));
        EXPECT_EQ(process->readLine(), "ready");
        return process;
    }

    static void stop(ChildProcess& process) {
        process.signal(SIGSTOP);
        awaitStop(process);
    }
    /// Returns when it has stopped.
    static void awaitStop(ChildProcess& process) {
        int status = 0;
        pid_t stopped = -1;
        do {
            stopped = waitpid(process.identifier(), &status, WUNTRACED);
        } while (stopped == -1 && errno == EINTR); // A test of signals has them arrive here too.
        EXPECT_EQ(stopped, process.identifier());
        EXPECT_TRUE(WIFSTOPPED(status));
    }

    struct Outcome {
        std::optional<Bytes> reply;
        std::vector<std::string> logged;
        std::chrono::steady_clock::duration took{};
    };
    Outcome ask(const std::string& name = "host", const Bytes& data = bytesOf("question")) {
        reporting_.clear();
        Outcome outcome;
        const auto start = std::chrono::steady_clock::now();
        CVMAMessagePort::dispatchMessage(name, CVMAMessageID::requestBadge, true, data,
                                         outcome.reply);
        outcome.took = std::chrono::steady_clock::now() - start;
        outcome.logged = reporting_.messages();
        return outcome;
    }

    void expectAbsent() {
        const Outcome outcome = ask();
        EXPECT_FALSE(outcome.reply);
        EXPECT_THAT(outcome.logged, ElementsAre(kAbsent));
        EXPECT_LT(outcome.took, 1s);
    }
    void expectTimeout(const Bytes& data = bytesOf("question")) {
        const Outcome outcome = ask("host", data);
        EXPECT_FALSE(outcome.reply);
        EXPECT_THAT(outcome.logged, ElementsAre(kFailed));
        EXPECT_GE(outcome.took, 1s);
        EXPECT_LT(outcome.took, 1s + kSlack);
    }
    void expectFailureAtOnce() {
        const Outcome outcome = ask();
        EXPECT_FALSE(outcome.reply);
        EXPECT_THAT(outcome.logged, ElementsAre(kFailed));
        EXPECT_LT(outcome.took, 1s);
    }
    void expectAnswer() {
        const Outcome outcome = ask();
        EXPECT_EQ(outcome.reply, bytesOf("question"));
        EXPECT_THAT(outcome.logged, IsEmpty());
    }
    void expectAnswerOfAnotherHost() {
        const auto host = readyPeer({"serve", "host"});
        expectAnswer();
    }
    std::vector<std::string> filesOfPorts() const {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(ports())) {
            files.push_back(entry.path().filename());
        }
        std::sort(files.begin(), files.end());
        return files;
    }
    std::string ports() const { return folder_ / "corvid/ports"; }

    TemporaryFolder folder_;
    RecordingReportingService reporting_;
    // After the environment is set.
    std::unique_ptr<RealPlatform> platform_ =
        (setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1), std::make_unique<RealPlatform>());
};

TEST(DeadlineTest, isNothingThatASocketRefusesOrTakesForEver) {
    EXPECT_EQ(Deadline(0ms).timevalLeft().tv_usec, 1);
    // A socket takes less than a million microseconds beside the seconds.
    for (int i = 0; i < 10'000; ++i) {
        const timeval left = Deadline(1000ms).timevalLeft();
        ASSERT_LT(left.tv_usec, 1'000'000);
        ASSERT_TRUE(left.tv_sec == 1 ? left.tv_usec == 0 : left.tv_usec > 0);
    }
}

TEST_F(MessagePortFaultTest, absentHost) {
    expectAbsent();
    expectAnswerOfAnotherHost();
    expectAbsent();
}

TEST_F(MessagePortFaultTest, stoppedHost) {
    const auto host = readyPeer({"serve", "host"});
    expectAnswer();
    stop(*host);
    expectTimeout();
    host->signal(SIGCONT);
    expectAnswer();
}

TEST_F(MessagePortFaultTest, hungHostTakesSomeMessagesAndThenRefusesInTime) {
    const auto host = readyPeer({"misbehave", "host", "never accepts"});
    std::optional<Bytes> none;
    int taken = 0;
    reporting_.clear();
    std::chrono::steady_clock::duration took{};
    while (reporting_.messages().empty() && taken < 1000) {
        const auto start = std::chrono::steady_clock::now();
        CVMAMessagePort::dispatchMessage("host", CVMAMessageID::requestBadge, false,
                                         bytesOf("question"), none);
        took = std::chrono::steady_clock::now() - start;
        ++taken;
    }
    // The one that found no room waited for its second, and says so.
    EXPECT_THAT(reporting_.messages(), ElementsAre(kFailed));
    EXPECT_GE(took, 1s);
    EXPECT_LT(took, 1s + kSlack);
    EXPECT_GT(taken, 1);
    EXPECT_LT(taken, 200);
    host->signal(SIGKILL);
    host->wait();
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, killedHost) {
    const auto host = readyPeer({"serve", "host"});
    expectAnswer();
    host->signal(SIGKILL);
    host->wait();
    // Its socket is still there.
    EXPECT_TRUE(std::filesystem::exists(ports() + "/host"));
    expectAbsent();
    expectAnswerOfAnotherHost();
}

// A request that the kernel holds as a whole, and one that it does not.
const std::vector<Bytes> kRequests{bytesOf("question"), Bytes(std::size_t{8} << 20U, 1)};
const char* const kPoints[] = {"stops before accepting", "stops before reading",
                               "stops before replying"};

TEST_F(MessagePortFaultTest, hostThatStopsAtAnyPointCostsTheTimeoutAndGoesOnLater) {
    for (const char* point : kPoints) {
        for (const Bytes& request : kRequests) {
            SCOPED_TRACE(std::string(point) + ", bytes " + std::to_string(request.size()));
            const auto host = readyPeer({"misbehave", "host", point});
            expectTimeout(request);
            awaitStop(*host);
            host->signal(SIGCONT);
            // Its reply to the first comes late and to nobody. It may have much to read before.
            const MessagePortRef remote = platform_->messagePorts.createRemote("host");
            ASSERT_NE(remote, nullptr);
            std::optional<Bytes> reply;
            EXPECT_EQ(platform_->messagePorts.sendRequest(*remote, 4, bytesOf("question"), 60s, 60s,
                                                          "mode", &reply),
                      SendStatus::success);
            EXPECT_EQ(reply, bytesOf("twelve bytes"));
        }
    }
}

TEST_F(MessagePortFaultTest, hostThatIsKilledAtAnyPointIsMissedAtOnce) {
    for (const char* point : kPoints) {
        for (const Bytes& request : kRequests) {
            SCOPED_TRACE(std::string(point) + ", bytes " + std::to_string(request.size()));
            const auto killAtPoint = [](ChildProcess& host) {
                return std::thread([&host] {
                    awaitStop(host);
                    host.signal(SIGKILL);
                });
            };
            {
                const auto host = readyPeer({"misbehave", "host", point});
                std::thread killer = killAtPoint(*host);
                const Outcome outcome = ask("host", request);
                EXPECT_FALSE(outcome.reply);
                EXPECT_THAT(outcome.logged, ElementsAre(kFailed));
                EXPECT_LT(outcome.took, 1s + kSlack);
                killer.join();
                host->wait();
                expectAbsent();
            }
            // With a minute of patience, to see that it is not a time-out that ends the wait.
            const auto host = readyPeer({"misbehave", "host", point});
            const MessagePortRef remote = platform_->messagePorts.createRemote("host");
            ASSERT_NE(remote, nullptr);
            std::thread killer = killAtPoint(*host);
            std::optional<Bytes> reply;
            // The second when it was killed before it was reached.
            EXPECT_THAT(
                platform_->messagePorts.sendRequest(*remote, 4, request, 60s, 60s, "mode", &reply),
                testing::AnyOf(SendStatus::becameInvalid, SendStatus::isInvalid));
            EXPECT_FALSE(reply);
            killer.join();
            host->wait();
            expectAnswerOfAnotherHost();
        }
    }
}

TEST_F(MessagePortFaultTest, hostKilledBetweenLookUpAndSendIsInvalid) {
    const auto host = readyPeer({"serve", "host"});
    const MessagePortRef remote = platform_->messagePorts.createRemote("host");
    ASSERT_NE(remote, nullptr);
    host->signal(SIGKILL);
    host->wait();
    std::optional<Bytes> reply;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(platform_->messagePorts.sendRequest(*remote, 4, bytesOf("question"), 60s, 60s, "mode",
                                                  &reply),
              SendStatus::isInvalid);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kSlack);
    EXPECT_FALSE(reply);
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, brokenReplies) {
    for (const char* how :
         {"cut", "longer than said", "shorter than said", "oversize", "other request",
          "other message", "garbage", "request for reply", "later version", "no reply"}) {
        SCOPED_TRACE(how);
        {
            const auto host = readyPeer({"misbehave", "host", how});
            expectFailureAtOnce();
            expectFailureAtOnce();
            host->goOn();
            host->wait();
        }
        expectAnswerOfAnotherHost();
    }
}

TEST_F(MessagePortFaultTest, drippingReplyDoesNotExtendTheDeadline) {
    {
        const auto host = readyPeer({"misbehave", "host", "drip"});
        expectTimeout();
    }
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, lateReplyIsNotTakenForTheNext) {
    const auto host = readyPeer({"serve", "host"});
    stop(*host);
    expectTimeout();
    host->signal(SIGCONT);
    const Outcome outcome = ask("host", bytesOf("another question"));
    EXPECT_EQ(outcome.reply, bytesOf("another question"));
    EXPECT_THAT(outcome.logged, IsEmpty());
}

TEST_F(MessagePortFaultTest, listFormSharesTheSlotInEveryOrder) {
    const auto echo = readyPeer({"serve", "echo"});
    const auto other = readyPeer({"misbehave", "other", "well"});
    const auto broken = readyPeer({"misbehave", "broken", "garbage"});
    const auto mute = readyPeer({"misbehave", "mute", "no reply"});
    const std::string failed = "<UI> MessagePort: Error sending message with messageID = "
                               "requestBadge to portname = ";
    const auto askAll = [&](const std::vector<std::string>& names, std::optional<Bytes>& slot) {
        reporting_.clear();
        CVMAMessagePort::dispatchMessage(names, CVMAMessageID::requestBadge, true, bytesOf("all"),
                                         slot);
        return reporting_.messages();
    };
    const std::map<std::string, Bytes> replies{{"echo", bytesOf("all")},
                                               {"other", bytesOf("twelve bytes")}};
    std::vector<std::string> names{"absent", "broken", "echo", "mute", "other"};
    do {
        SCOPED_TRACE(testing::PrintToString(names));
        std::vector<std::string> failures;
        Bytes last;
        for (const std::string& name : names) {
            if (const auto reply = replies.find(name); reply != replies.end()) {
                last = reply->second;
            } else {
                failures.push_back(name == "absent" ? kAbsent : failed + name);
            }
        }
        std::optional<Bytes> slot = bytesOf("before");
        EXPECT_EQ(askAll(names, slot), failures);
        EXPECT_EQ(slot, last);
    } while (std::next_permutation(names.begin(), names.end()));

    std::optional<Bytes> slot;
    EXPECT_THAT(askAll({}, slot), IsEmpty());
    EXPECT_FALSE(slot);
    EXPECT_THAT(askAll({"absent", "broken"}, slot), ElementsAre(kAbsent, failed + "broken"));
    EXPECT_FALSE(slot);
    slot = bytesOf("before");
    EXPECT_THAT(askAll({"mute", "broken"}, slot), ElementsAre(failed + "mute", failed + "broken"));
    EXPECT_EQ(slot, bytesOf("before"));
}

TEST_F(MessagePortFaultTest, twoProcessesRaceForOneName) {
    const auto first = readyPeer({"race", "host"});
    const auto second = readyPeer({"race", "host"});
    int firstWon = 0;
    for (int round = 0; round < 1000; ++round) {
        first->goOn();
        second->goOn();
        const bool isFirst = first->readLine() == "mine";
        const bool isSecond = second->readLine() == "mine";
        ASSERT_NE(isFirst, isSecond) << "round " << round;
        firstWon += isFirst ? 1 : 0;
        first->goOn();
        second->goOn();
        ASSERT_EQ(first->readLine(), "free");
        ASSERT_EQ(second->readLine(), "free");
    }
    EXPECT_GT(firstWon, 0);
    EXPECT_LT(firstWon, 1000);
}

TEST_F(MessagePortFaultTest, forkedChildOfTheHostHoldsNothing) {
    const auto host = peer({"serve-and-fork", "host"});
    const pid_t child = std::stoi(host->readLine().value());
    expectAnswer();
    host->signal(SIGKILL);
    host->wait();
    ASSERT_EQ(kill(child, 0), 0);
    expectAbsent();
    expectAnswerOfAnotherHost();
    kill(child, SIGKILL);
}

TEST_F(MessagePortFaultTest, badFoldersMakeEveryPortAbsentAndAreNotMended) {
    const std::string corvid = folder_ / "corvid";
    const auto check = [&](const char* what) {
        SCOPED_TRACE(what);
        expectAbsent();
        EXPECT_EQ(platform_->messagePorts.createLocal("host", {}), nullptr);
        std::string problem;
        EXPECT_FALSE(PortFolder(RuntimeFolder::ofThisUser()).take("host", &problem));
        EXPECT_THAT(problem, testing::StartsWith(corvid));
    };
    for (const std::string& bad : {corvid, ports()}) {
        SCOPED_TRACE(bad);
        std::filesystem::create_directories(ports());
        chmod(corvid.c_str(), 0700);
        chmod(ports().c_str(), 0700);

        chmod(bad.c_str(), 0750);
        check("mode");
        struct stat status{};
        ASSERT_EQ(stat(bad.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0750U);
        chmod(bad.c_str(), 0700);

        std::filesystem::rename(bad, folder_ / "elsewhere");
        std::filesystem::create_directory_symlink(folder_ / "elsewhere", bad);
        check("link");
        std::filesystem::remove(bad);

        std::ofstream(bad) << "not a folder";
        check("file");
        std::filesystem::remove(bad);
        std::filesystem::rename(folder_ / "elsewhere", bad);

        if (geteuid() == 0) {
            ASSERT_EQ(chown(bad.c_str(), 65534, 65534), 0);
            check("owner");
            ASSERT_EQ(chown(bad.c_str(), 0, 0), 0);
        } else {
            std::puts("skipped: a folder of another owner needs root");
        }
    }
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, missingRuntimeFolderIsAbsence) {
    setenv("XDG_RUNTIME_DIR", (folder_ / "nowhere").c_str(), 1);
    platform_.reset();
    platform_ = std::make_unique<RealPlatform>();
    expectAbsent();
    reporting_.clear();
    EXPECT_EQ(CVMAMessagePort::createServerPort("host", {}), nullptr);
    EXPECT_THAT(reporting_.messages(),
                testing::Contains("<UI> MessagePort: failed to create server port"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "nowhere"));
    std::filesystem::create_directory(folder_ / "nowhere");
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, folderRemovedWhileRunning) {
    const auto host = readyPeer({"serve", "host"});
    expectAnswer();
    std::filesystem::remove_all(folder_ / "corvid");
    expectAbsent();
    // A host that starts now makes the folder anew, and is found.
    expectAnswerOfAnotherHost();
}

// The queue's thread waits for connections; what others give it must reach it there, whatever has
// become of the name.
TEST_F(MessagePortFaultTest, queueOfAWaitingPortIsReachedWithoutItsName) {
    const std::string file = ports() + "/own";
    const auto queueRuns = [&](DispatchQueue& queue) {
        std::promise<void> ran;
        queue.async([&] { ran.set_value(); });
        return ran.get_future().wait_for(kSlack) == std::future_status::ready;
    };
    for (const char* what : {"removed", "renamed", "forbidden"}) {
        SCOPED_TRACE(what);
        DispatchQueue& queue = platform_->dispatch.serialQueue(what);
        const MessagePortRef port = platform_->messagePorts.createLocal(
            "own",
            [](MessagePort&, std::int32_t, std::optional<ByteView>) { return bytesOf("answer"); });
        ASSERT_NE(port, nullptr);
        platform_->messagePorts.setDispatchQueue(*port, queue);
        EXPECT_EQ(ask("own").reply, bytesOf("answer"));
        EXPECT_TRUE(queueRuns(queue)); // from here on it waits again
        if (what == std::string_view("forbidden")) {
            ASSERT_EQ(chmod(file.c_str(), 0), 0);
            EXPECT_TRUE(queueRuns(queue));
        } else {
            ASSERT_EQ(rename(file.c_str(), (file + "-gone").c_str()), 0);
            if (what == std::string_view("removed")) {
                ASSERT_EQ(unlink((file + "-gone").c_str()), 0);
            }
            EXPECT_TRUE(queueRuns(queue));
            EXPECT_TRUE(queueRuns(queue));
        }
        platform_->messagePorts.invalidate(*port);
        std::error_code error;
        std::filesystem::remove(file + "-gone", error);
        EXPECT_TRUE(queueRuns(queue));
    }
    expectAbsent();
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, namesOfEveryKind) {
    std::string allBytes;
    for (int byte = 0; byte < 255; ++byte) {
        allBytes += static_cast<char>(byte);
    }
    const std::string longName(255, 'x');
    std::string differsLate = longName;
    differsLate.back() = 'y';
    const std::string manySlashes(255, '/');
    std::string slashesDifferLate = manySlashes;
    slashesDifferLate.back() = '.';
    const std::vector<std::string> names{"/",
                                         "..",
                                         ".",
                                         "../ports/x",
                                         "a/b",
                                         "a%2Fb",
                                         "=1",
                                         std::string("n\0ul", 4),
                                         "näme",
                                         allBytes,
                                         longName,
                                         differsLate,
                                         "x.y~z",
                                         manySlashes,
                                         slashesDifferLate};
    UnixDispatch dispatch;
    UnixMessagePortService service;
    std::vector<MessagePortRef> locals;
    for (const std::string& name : names) {
        EXPECT_EQ(service.createRemote(name), nullptr);
        locals.push_back(
            service.createLocal(name, [](MessagePort& port, std::int32_t, std::optional<ByteView>) {
                return std::optional(bytesOf(port.name()));
            }));
        ASSERT_NE(locals.back(), nullptr) << testing::PrintToString(name);
        service.setDispatchQueue(*locals.back(), dispatch.serialQueue("names"));
    }
    for (const std::string& name : names) {
        const auto remote = service.createRemote(name);
        ASSERT_NE(remote, nullptr);
        std::optional<Bytes> reply;
        EXPECT_EQ(service.sendRequest(*remote, 1, {}, 30s, 30s, "mode", &reply),
                  SendStatus::success);
        EXPECT_EQ(reply, bytesOf(name));
    }
    std::vector<std::string> listed;
    for (const LivePort& port : service.portFolder().livePorts()) {
        listed.push_back(port.name);
        EXPECT_EQ(port.process, getpid());
    }
    EXPECT_THAT(listed, testing::UnorderedElementsAreArray(names));
    locals.clear();
    EXPECT_TRUE(std::filesystem::is_empty(ports()));
}

TEST_F(MessagePortFaultTest, clientWithoutDescriptors) {
    const auto host = readyPeer({"serve", "host"});
    expectAnswer();
    std::vector<OwnedFd> all;
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{64, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        all.emplace_back(fd);
    }
    const Outcome outcome = ask();
    EXPECT_FALSE(outcome.reply);
    EXPECT_THAT(outcome.logged, ElementsAre(kAbsent));
    EXPECT_LT(outcome.took, 1s);
    all.clear();
    setrlimit(RLIMIT_NOFILE, &before);
    expectAnswer();
}

/// A limit on this process's descriptors that is reached already, but for `left`.
class FewDescriptors {
public:
    explicit FewDescriptors(std::size_t left) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit few{256, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            all_.emplace_back(fd);
        }
        while (left-- > 0 && !all_.empty()) {
            all_.pop_back();
        }
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit before_{};
    std::vector<OwnedFd> all_;
};

// However far the search gets, what it does not know it does not take for absence.
TEST_F(MessagePortFaultTest, clientWithoutDescriptorsTakesNoPortForGone) {
    using State = PortPresence::State;
    const std::string longName(255, '/');
    for (const std::string& name : {std::string("host"), longName}) {
        auto host = readyPeer({"serve", name});
        UnixMessagePortService fresh; // has not opened the folder yet
        const MessagePortRef kept = fresh.createRemote(name);
        ASSERT_NE(kept, nullptr);
        fresh.sendRequest(*kept, 1, {}, 30s, 30s, "mode", nullptr); // spends its connection
        EXPECT_EQ(platform_->messagePorts.presenceOf(name).state, State::served);
        for (std::size_t left = 0; left < 4; ++left) {
            SCOPED_TRACE(left);
            UnixMessagePortService newcomer;
            PortFolder::Listing listing;
            PortPresence presence;
            PortPresence presenceForNewcomer;
            SendStatus status = SendStatus::success;
            {
                const FewDescriptors few(left);
                presence = platform_->messagePorts.presenceOf(name);
                presenceForNewcomer = newcomer.presenceOf(name);
                listing = newcomer.portFolder().list();
                status = fresh.sendRequest(*kept, 1, {}, 30s, 30s, "mode", nullptr);
            }
            EXPECT_NE(presence.state, State::gone);
            EXPECT_NE(presenceForNewcomer.state, State::gone);
            EXPECT_EQ(listing.problem.empty(), listing.ports.size() == 1);
            EXPECT_THAT(status, testing::AnyOf(SendStatus::success, SendStatus::transportError));
            if (left == 0) {
                EXPECT_EQ(presence.state, State::unknown);
                EXPECT_THAT(presence.problem, testing::HasSubstr("Too many open files"));
                EXPECT_THAT(listing.problem, testing::HasSubstr("Too many open files"));
                EXPECT_EQ(status, SendStatus::transportError);
            }
        }
        EXPECT_EQ(platform_->messagePorts.presenceOf(name).state, State::served);
        host->signal(SIGKILL);
        host->wait();
        EXPECT_EQ(platform_->messagePorts.presenceOf(name).state, State::gone);
        EXPECT_EQ(platform_->messagePorts.presenceOf("another").state, State::gone);
    }
    std::filesystem::remove_all(folder_ / "corvid");
    EXPECT_EQ(platform_->messagePorts.presenceOf("host").state, State::gone);
    EXPECT_EQ(UnixMessagePortService().presenceOf("host").state, State::gone);
}

TEST_F(MessagePortFaultTest, hostWithoutDescriptorsServesWhenItHasOneAgain) {
    // Standard streams, event loop, folder, socket, and one connection at a time.
    const auto host = readyPeer({"serve-with-descriptors", "host", "9"});
    PortFolder folder(RuntimeFolder::ofThisUser());
    std::vector<PortFolder::Connection> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(folder.connect("host", std::nullopt));
        EXPECT_EQ(silent.back().result, PortFolder::ConnectResult::connected);
    }
    expectTimeout();
    silent.clear();
    // Each of them frees a descriptor, and the next who waits gets it.
    const MessagePortRef remote = platform_->messagePorts.createRemote("host");
    ASSERT_NE(remote, nullptr);
    std::optional<Bytes> reply;
    EXPECT_EQ(platform_->messagePorts.sendRequest(*remote, 4, bytesOf("question"), 60s, 60s, "mode",
                                                  &reply),
              SendStatus::success);
    EXPECT_EQ(reply, bytesOf("question"));
    expectAnswer();
}

TEST_F(MessagePortFaultTest, silentAndHalfHeartedSendersDoNotKeepOthersFromBeingServed) {
    const auto host = readyPeer({"serve", "host"});
    PortFolder folder(RuntimeFolder::ofThisUser());
    std::vector<PortFolder::Connection> silent;
    for (int i = 0; i < 500; ++i) {
        silent.push_back(folder.connect("host", Deadline(30s)));
        ASSERT_EQ(silent.back().result, PortFolder::ConnectResult::connected);
    }
    expectAnswer();
    // Announce much, send little.
    FrameHeader header;
    header.hasData = true;
    header.dataBytes = kMaxFrameDataBytes;
    const auto frame = encodedHeader(header);
    for (int i = 0; i < 10; ++i) {
        send(silent[static_cast<std::size_t>(499 - i)].fd.get(), frame.data(), frame.size(),
             MSG_NOSIGNAL);
    }
    expectAnswer();
}

/// Whether this program is slowed down by a sanitizer.
constexpr bool isSanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return true;
#endif
#endif
    return false;
}

/// Asks `host` as the extension does, eight at a time: how long the slowest of `count` questions
/// took, and how many were not answered.
struct Strain {
    std::chrono::milliseconds slowest{};
    int unanswered = 0;
};
Strain askMany(MessagePortService& service, int count, std::chrono::milliseconds deadline) {
    constexpr int kLanes = 8;
    std::vector<std::future<Strain>> lanes;
    for (int lane = 0; lane < kLanes; ++lane) {
        lanes.push_back(std::async(std::launch::async, [&service, count, deadline] {
            Strain strain;
            for (int i = 0; i < count / kLanes; ++i) {
                const auto start = std::chrono::steady_clock::now();
                std::optional<Bytes> reply;
                const MessagePortRef remote = service.createRemote("host");
                if (remote == nullptr ||
                    service.sendRequest(*remote, 4, bytesOf("question"), deadline, deadline, "mode",
                                        &reply) != SendStatus::success) {
                    ++strain.unanswered;
                }
                strain.slowest =
                    std::max(strain.slowest, std::chrono::duration_cast<std::chrono::milliseconds>(
                                                 std::chrono::steady_clock::now() - start));
            }
            return strain;
        }));
    }
    Strain all;
    for (auto& lane : lanes) {
        const Strain strain = lane.get();
        all.slowest = std::max(all.slowest, strain.slowest);
        all.unanswered += strain.unanswered;
    }
    return all;
}

TEST_F(MessagePortFaultTest, sendersThatSayHalfAndComeAgainDoNotKeepOthersFromBeingServed) {
    const auto host = readyPeer({"serve", "host"});
    // The deadlines are the extension's; a sanitizer makes all 500 slower, and not the clock.
    const char* const many = isSanitized() ? "100" : "500";
    for (const char* how : {"one byte", "drip"}) {
        for (const char* count : {"64", many}) {
            SCOPED_TRACE(std::string(count) + " senders, " + how);
            const auto crowd = readyPeer({"say-half", "host", count, how});
            // Many need half of the usual second on a busy machine, and much longer when a place
            // is only free after the five seconds of a silent sender.
            const auto deadline = count == many ? 10s : 1s;
            const Strain strain = askMany(platform_->messagePorts, 200, deadline);
            EXPECT_EQ(strain.unanswered, 0);
            RecordProperty(std::string("slowest ms, ") + count + " " + how,
                           std::to_string(strain.slowest.count()));
        }
    }
    expectAnswer();
}

// Whoever sends much without a break keeps his place, even at a fraction of the usual speed.
TEST_F(MessagePortFaultTest, crowdOfHalfHeartedSendersDoesNotSendAwayWhoKeepsSending) {
    const auto host = readyPeer({"serve", "host"});
    const auto crowd = readyPeer({"say-half", "host", "200", "one byte"});
    const Bytes much(std::size_t{24} << 20U, 1);
    for (int i = 0; i < 5; ++i) {
        const MessagePortRef remote = platform_->messagePorts.createRemote("host");
        ASSERT_NE(remote, nullptr);
        std::optional<Bytes> reply;
        EXPECT_EQ(platform_->messagePorts.sendRequest(*remote, 4, much, 60s, 60s, "mode", &reply),
                  SendStatus::success);
        EXPECT_EQ(reply, much);
    }
}

// Two that announce all the memory there is and send nothing of it make way for one who does.
TEST_F(MessagePortFaultTest, memoryThatIsOnlyAnnouncedIsThereForOthers) {
    const auto host = readyPeer({"serve", "host"});
    PortFolder folder(RuntimeFolder::ofThisUser());
    FrameHeader header;
    header.hasData = header.wantsReply = true;
    header.dataBytes = kMaxFrameDataBytes;
    const auto frame = encodedHeader(header);
    std::vector<PortFolder::Connection> announcers;
    for (int i = 0; i < 3; ++i) {
        announcers.push_back(folder.connect("host", Deadline(30s)));
        ASSERT_EQ(announcers.back().result, PortFolder::ConnectResult::connected);
        ASSERT_EQ(send(announcers.back().fd.get(), frame.data(), frame.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(frame.size()));
        const char first = 'x';
        ASSERT_EQ(send(announcers.back().fd.get(), &first, 1, MSG_NOSIGNAL), 1);
    }
    const Bytes large(std::size_t{1} << 20U, 1);
    const auto start = std::chrono::steady_clock::now();
    const MessagePortRef remote = platform_->messagePorts.createRemote("host");
    ASSERT_NE(remote, nullptr);
    std::optional<Bytes> reply;
    EXPECT_EQ(platform_->messagePorts.sendRequest(*remote, 4, large, 30s, 30s, "mode", &reply),
              SendStatus::success);
    EXPECT_EQ(reply, large);
    // Without it, the announcers' five seconds would have to pass.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
}

TEST_F(MessagePortFaultTest, replyThatThereIsNoMemoryForIsAnError) {
    if (isSanitized()) {
        GTEST_SKIP() << "a sanitizer needs more memory than can be limited";
    }
    const auto host = readyPeer({"serve", "host"});
    const auto sender = peer({"ask-without-memory", "host", "4"});
    EXPECT_EQ(sender->readLine(),
              std::to_string(static_cast<int>(SendStatus::transportError)) + " without");
    EXPECT_EQ(sender->readLine(), "0 with a reply");
}

TEST_F(MessagePortFaultTest, sendersThatReadNoReplyDoNotKeepOthersFromBeingServed) {
    const auto host = readyPeer({"serve", "host"});
    PortFolder folder(RuntimeFolder::ofThisUser());
    FrameHeader header;
    header.hasData = header.wantsReply = true;
    header.dataBytes = 4U << 20U;
    const auto encoded = encodedHeader(header);
    Bytes frame(encoded.begin(), encoded.end());
    frame.resize(frame.size() + header.dataBytes);
    std::vector<PortFolder::Connection> deaf;
    for (int i = 0; i < 10; ++i) {
        deaf.push_back(folder.connect("host", Deadline(30s)));
        ASSERT_EQ(deaf.back().result, PortFolder::ConnectResult::connected);
        for (std::size_t sent = 0; sent < frame.size();) {
            pollfd entry{deaf.back().fd.get(), POLLOUT, 0};
            ASSERT_EQ(poll(&entry, 1, 30'000), 1);
            const ssize_t count =
                send(entry.fd, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
            ASSERT_GT(count, 0) << std::strerror(errno);
            sent += static_cast<std::size_t>(count);
        }
    }
    expectAnswer();
}

TEST_F(MessagePortFaultTest, signalsDuringEveryCallOfTheHost) {
    const auto host = readyPeer({"serve-amid-signals", "host"});
    for (int i = 0; i < 500; ++i) {
        expectAnswer();
    }
    const MessagePortRef remote = platform_->messagePorts.createRemote("host");
    ASSERT_NE(remote, nullptr);
    std::optional<Bytes> reply;
    EXPECT_EQ(
        platform_->messagePorts.sendRequest(*remote, 4, kRequests.back(), 60s, 60s, "mode", &reply),
        SendStatus::success);
    EXPECT_EQ(reply, kRequests.back());
    host->goOn();
    EXPECT_GT(std::stol(host->readLine().value()), 0);
}

TEST_F(MessagePortFaultTest, signalsDuringEveryCall) {
    const auto host = readyPeer({"serve", "host"});
    struct sigaction action{};
    action.sa_handler = [](int) {};
    struct sigaction before{};
    sigaction(SIGALRM, &action, &before);
    const itimerval often{{0, 500}, {0, 500}};
    const itimerval never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (int i = 0; i < 500; ++i) {
        expectAnswer();
    }
    stop(*host);
    expectTimeout();
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    host->signal(SIGCONT);
    expectAnswer();
}

TEST_F(MessagePortFaultTest, fullDiskHidesNobodyAndLeavesNothingBehind) {
    SmallDisk disk(folder_ / "corvid");
    if (!disk.isMounted()) {
        GTEST_SKIP() << "a file system cannot be mounted here: " << disk.reason();
    }
    const auto host = readyPeer({"serve", "host"});
    const std::vector<std::string> before = filesOfPorts();
    // This name's file is a hash, and the name itself is written beside it.
    const std::string longName(255, '/');
    const auto expectNoPort = [&](const std::string& name) {
        reporting_.clear();
        EXPECT_EQ(CVMAMessagePort::createServerPort(name, {}), nullptr);
        EXPECT_THAT(reporting_.messages(),
                    testing::Contains("<UI> MessagePort: failed to create server port"));
        std::string problem;
        EXPECT_FALSE(PortFolder(RuntimeFolder::ofThisUser()).take(name, &problem));
        EXPECT_THAT(problem, testing::AllOf(testing::StartsWith(folder_ / "corvid"),
                                            testing::HasSubstr("No space left on device")));
        EXPECT_EQ(filesOfPorts(), before);
        expectAnswer();
    };
    const auto publish = [&] {
        return VolumeFile::ofHost(RuntimeFolder::ofThisUser()).publish("/home/me/Corvid", true);
    };
    disk.fillPlaces();
    expectNoPort("another");
    expectNoPort(longName);
    EXPECT_THAT(publish().problem, testing::HasSubstr("No space left on device"));
    disk.empty();
    disk.fillSpace();
    expectNoPort(longName);
    EXPECT_THAT(publish().problem, testing::HasSubstr("No space left on device"));
    EXPECT_EQ(VolumeFile::ofHost(RuntimeFolder::ofThisUser()).read(), std::nullopt);
    // A short name needs no space, only a place.
    EXPECT_TRUE(PortFolder(RuntimeFolder::ofThisUser()).take("another"));
    disk.empty();
    EXPECT_NE(CVMAMessagePort::createServerPort(longName, {}), nullptr);
    EXPECT_NE(publish().publication, nullptr);
    expectAnswer();
}

// Time-outs are those of the monotonic clock.
TEST_F(MessagePortFaultTest, clockThatIsSetBackChangesNothing) {
    const auto host = readyPeer({"serve-while-the-clock-is-set-back", "host"});
    const RestlessClock clock;
    const auto now = std::chrono::system_clock::now();
    ASSERT_LT(std::chrono::system_clock::now(), now - 30min);
    for (int i = 0; i < 20; ++i) {
        expectAnswer();
    }
    stop(*host);
    expectTimeout();
    host->signal(SIGCONT);
    expectAnswer();
    host->signal(SIGKILL);
    host->wait();
    expectAbsent();
    expectAnswerOfAnotherHost();
}

TEST_F(MessagePortFaultTest, anotherUsersProcessIsTreatedAsAbsentAtBothEnds) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    // A server of another user within our folder, which only root can bring about.
    std::filesystem::create_directories(ports());
    chmod((folder_ / "corvid").c_str(), 0700);
    chmod(ports().c_str(), 0700);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (ports() + "/host").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const pid_t other = fork();
    if (other == 0) {
        // The credentials are those of who listens.
        _exit(setresuid(65534, 65534, 65534) == 0 && listen(listener, 5) == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(other, &status, 0);
    ASSERT_EQ(status, 0);
    expectAbsent();
    close(listener);

    // A sender of another user gets nothing from us.
    const auto host = readyPeer({"serve", "host"});
    chmod(folder_.path().c_str(), 0755);
    const OwnedFd path(open((ports() + "/host").c_str(), O_PATH | O_CLOEXEC));
    chmod((ports() + "/host").c_str(), 0777);
    sockaddr_un byDescriptor{};
    byDescriptor.sun_family = AF_UNIX;
    ("/proc/self/fd/" + std::to_string(path.get()))
        .copy(byDescriptor.sun_path, sizeof byDescriptor.sun_path - 1);
    const pid_t stranger = fork();
    if (stranger == 0) {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (setresuid(65534, 65534, 65534) != 0 ||
            connect(fd, reinterpret_cast<sockaddr*>(&byDescriptor), sizeof byDescriptor) != 0) {
            _exit(2);
        }
        FrameHeader header;
        header.wantsReply = true;
        const auto frame = encodedHeader(header);
        send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        char byte = 0;
        _exit(recv(fd, &byte, 1, 0) > 0 ? 1 : 0);
    }
    waitpid(stranger, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    expectAnswer();
}

TEST_F(MessagePortFaultTest, versionsMeet) {
    const auto host = readyPeer({"serve", "host"});
    PortFolder folder(RuntimeFolder::ofThisUser());
    const auto exchange = [&](FrameHeader header, std::size_t extraHeader) {
        auto connection = folder.connect("host", Deadline(30s));
        const auto known = encodedHeader(header);
        Bytes frame(known.begin(), known.end());
        frame.insert(frame.end(), extraHeader, 0xEE);
        frame.insert(frame.end(), header.dataBytes, 'd');
        send(connection.fd.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
        int blocking = fcntl(connection.fd.get(), F_GETFL) & ~O_NONBLOCK;
        fcntl(connection.fd.get(), F_SETFL, blocking);
        Bytes reply(100);
        const ssize_t count = recv(connection.fd.get(), reply.data(), reply.size(), MSG_WAITALL);
        reply.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return reply;
    };
    FrameHeader header;
    header.hasData = header.wantsReply = true;
    header.dataBytes = 3;
    header.number = 77;
    // A newer sender whose frame an older reader may read: what it added is skipped.
    header.version = 9;
    header.headerBytes = kFrameHeaderBytes + 12;
    Bytes reply = exchange(header, 12);
    ASSERT_EQ(reply.size(), kFrameHeaderBytes + 3);
    auto answered = decodedHeader(reply);
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->version, kFrameVersion);
    EXPECT_EQ(answered->number, 77U);
    EXPECT_FALSE(answered->isRefusal);
    // And one that it may not.
    header.oldestReader = 9;
    reply = exchange(header, 12);
    answered = decodedHeader(reply);
    ASSERT_TRUE(answered);
    EXPECT_TRUE(answered->isRefusal);
    EXPECT_EQ(answered->dataBytes, 0U);
    expectAnswer();

    // A newer host whose reply this side may read. (One that it may not is a broken reply, above.)
    const auto newer = readyPeer({"misbehave", "newer", "longer header"});
    EXPECT_EQ(ask("newer").reply, bytesOf("twelve bytes"));
}

} // namespace

} // namespace corvid::test
