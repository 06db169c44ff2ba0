#include "Platform/Unix/PortWatcher.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/VolumeFile.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryFolder.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::test {

namespace {

using namespace std::chrono_literals;

/// Lines that a watcher wrote, for the test to wait for.
class Told {
public:
    void add(std::string line) {
        const MutexLock lock(mutex_);
        lines_.push_back(std::move(line));
        changed_.notify_all();
    }
    std::string next() {
        MutexLock lock(mutex_);
        const auto end = std::chrono::steady_clock::now() + 30s;
        while (lines_.empty()) {
            if (!lock.waitUntil(changed_, end)) {
                return "(nothing)";
            }
        }
        std::string line = lines_.front();
        lines_.pop_front();
        return line;
    }
    bool isEmpty() {
        const MutexLock lock(mutex_);
        return lines_.empty();
    }

private:
    Mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> lines_ CORVID_GUARDED_BY(mutex_);
};

class WatcherTest : public testing::Test {
protected:
    WatcherTest() { setenv("XDG_RUNTIME_DIR", (temporary_ / "run").c_str(), 1); }
    ~WatcherTest() override { unsetenv("XDG_RUNTIME_DIR"); }

    std::unique_ptr<PortWatcher> watchPorts(const std::string& prefix) {
        return std::make_unique<PortWatcher>(folder(), prefix, queue_,
                                             [this](const LivePort& port, bool isAlive) {
                                                 told_.add(port.name + (isAlive ? " +" : " -"));
                                             });
    }
    RuntimeFolder folder() const { return RuntimeFolder(temporary_ / "run/corvid"); }
    void makeRun() const { mkdir((temporary_ / "run").c_str(), 0700); }

    TemporaryFolder temporary_;
    UnixDispatch dispatch_;
    DispatchQueue& queue_ = dispatch_.serialQueue("watch");
    Told told_;
};

MessagePortRef open(UnixMessagePortService& service, const std::string& name) {
    return service.createLocal(name, [](MessagePort&, std::int32_t, std::optional<ByteView>) {
        return std::optional<Bytes>();
    });
}

} // namespace

TEST_F(WatcherTest, tellsOfPortsThatComeAndGoFromBeforeTheFolderExists) {
    const auto watcher = watchPorts("ext-");
    makeRun();
    UnixMessagePortService service(folder());
    auto other = open(service, "other");
    auto first = open(service, "ext-1");
    EXPECT_EQ(told_.next(), "ext-1 +");
    auto second = open(service, "ext-2");
    EXPECT_EQ(told_.next(), "ext-2 +");
    first.reset();
    EXPECT_EQ(told_.next(), "ext-1 -");
    other.reset();
    std::filesystem::remove_all(temporary_ / "run/corvid");
    EXPECT_EQ(told_.next(), "ext-2 -");
    const auto third = open(service, "ext-3");
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(told_.next(), "ext-3 +");
    EXPECT_TRUE(told_.isEmpty());
}

TEST_F(WatcherTest, tellsOfPortsThatAreThereAlready) {
    makeRun();
    UnixMessagePortService service(folder());
    const auto port = open(service, "early");
    const auto watcher = watchPorts("");
    EXPECT_EQ(told_.next(), "early +");
}

TEST_F(WatcherTest, seesTheDeathOfAnOwner) {
    makeRun();
    const auto watcher = watchPorts("");
    ChildProcess peer({CORVID_PORT_PEER, "serve", "mortal"});
    ASSERT_EQ(peer.readLine(), "ready");
    EXPECT_EQ(told_.next(), "mortal +");
    peer.signal(SIGKILL);
    EXPECT_EQ(told_.next(), "mortal -");
}

TEST_F(WatcherTest, knowsAnOwnerThatHangsUntilItDies) {
    makeRun();
    UnixMessagePortService service(folder());
    const auto watcher = watchPorts("");
    ChildProcess peer({CORVID_PORT_PEER, "misbehave", "hung", "never accepts"});
    ASSERT_EQ(peer.readLine(), "ready");
    EXPECT_EQ(told_.next(), "hung +");
    // Until its queue is full, and nobody can ask it who it is.
    PortFolder ports(folder());
    std::vector<PortFolder::Connection> queued;
    do {
        queued.push_back(ports.connect("hung", std::nullopt));
        ASSERT_LT(queued.size(), 1000U);
    } while (queued.back().result == PortFolder::ConnectResult::connected);
    ASSERT_EQ(queued.back().result, PortFolder::ConnectResult::timedOut);
    const auto other = open(service, "other");
    EXPECT_EQ(told_.next(), "other +");
    peer.signal(SIGKILL);
    EXPECT_EQ(told_.next(), "hung -");
}

namespace {

/// Takes every descriptor that this process may have, until it goes.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit few{256, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        for (int fd = 0; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            all_.emplace_back(fd);
        }
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit before_{};
    std::vector<OwnedFd> all_;
};

} // namespace

TEST_F(WatcherTest, forgetsNothingWhileThereAreNoDescriptors) {
    makeRun();
    UnixMessagePortService service(folder());
    const auto file = VolumeFile::ofHost(folder());
    const auto published = file.publish("/one", true);
    const auto first = open(service, "first");
    const auto watcher = watchPorts("");
    EXPECT_EQ(told_.next(), "first +");
    const auto volumes = file.watch(queue_, [this](const std::optional<PublishedVolume>& volume) {
        told_.add(volume ? volume->folder : "none");
    });
    EXPECT_EQ(told_.next(), "/one");
    mkdir((temporary_ / "run/corvid/ports/.a").c_str(), 0700);
    {
        const NoDescriptors none;
        rename((temporary_ / "run/corvid/ports/.a").c_str(),
               (temporary_ / "run/corvid/ports/.b").c_str());
        // It has looked when this returns.
        dynamic_cast<UnixDispatchQueue&>(queue_).sync([] {});
    }
    const auto second = open(service, "second");
    EXPECT_EQ(told_.next(), "second +");
    EXPECT_TRUE(told_.isEmpty());
}

TEST_F(WatcherTest, looksNowAndThenUntilItIsTold) {
    makeRun();
    UnixMessagePortService service(folder());
    auto first = open(service, "first");
    std::unique_ptr<PortWatcher> watcher;
    {
        const NoDescriptors none;
        watcher = watchPorts("");
        dynamic_cast<UnixDispatchQueue&>(queue_).sync([] {});
    }
    EXPECT_EQ(told_.next(), "first +");
    first.reset();
    EXPECT_EQ(told_.next(), "first -");
}

// The events of the folder above fill the queue of the system, and that of a port is lost.
TEST_F(WatcherTest, looksAfterMoreEventsThanTheSystemKeeps) {
    makeRun();
    UnixMessagePortService service(folder());
    const auto first = open(service, "first");
    const auto watcher = watchPorts("");
    EXPECT_EQ(told_.next(), "first +");
    std::promise<void> isHeld;
    std::promise<void> mayGoOn;
    queue_.async([&] {
        isHeld.set_value();
        mayGoOn.get_future().wait();
    });
    isHeld.get_future().wait();
    long kept = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kept;
    const std::string noise = temporary_ / "run/noise";
    for (long i = 0; i < kept / 2 + 10; ++i) {
        close(::open(noise.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        unlink(noise.c_str());
    }
    const auto second = open(service, "second");
    mayGoOn.set_value();
    EXPECT_EQ(told_.next(), "second +");
}

TEST_F(WatcherTest, anOwnerThatCanBeAskedAtLastHasNotVanished) {
    makeRun();
    UnixMessagePortService service(folder());
    ChildProcess peer({CORVID_PORT_PEER, "serve", "busy"});
    ASSERT_EQ(peer.readLine(), "ready");
    peer.signal(SIGSTOP);
    siginfo_t stopped{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(peer.identifier()), &stopped, WSTOPPED), 0);
    PortFolder ports(folder());
    std::vector<PortFolder::Connection> queued;
    do {
        queued.push_back(ports.connect("busy", std::nullopt));
        ASSERT_LT(queued.size(), 1000U);
    } while (queued.back().result == PortFolder::ConnectResult::connected);
    const auto watcher = watchPorts("");
    EXPECT_EQ(told_.next(), "busy +");
    EXPECT_EQ(ports.livePorts("busy").front().process, 0);
    peer.signal(SIGCONT);
    queued.clear();
    // It is asked again whenever something changes, until it has room.
    std::vector<MessagePortRef> others;
    std::string told;
    do {
        others.push_back(open(service, "other " + std::to_string(others.size())));
        told = told_.next();
        ASSERT_NE(told, "busy -");
        ASSERT_LT(others.size(), 1000U);
    } while (told != "busy +");
    EXPECT_THAT(told_.next(), testing::StartsWith("other"));
    others.clear();
    peer.signal(SIGKILL);
    while ((told = told_.next()).starts_with("other")) {
    }
    EXPECT_EQ(told, "busy -");
}

TEST_F(WatcherTest, mayEndAtAnyMoment) {
    makeRun();
    UnixMessagePortService service(folder());
    for (int i = 0; i < 50; ++i) {
        const auto watcher = watchPorts("");
        const auto port = open(service, "brief");
    }
}

TEST_F(WatcherTest, oneVolumeIsPublishedAtATime) {
    makeRun();
    const auto file = VolumeFile::ofExtension(folder());
    EXPECT_FALSE(file.read());
    auto first = file.publish("/home/me/Corvid", false);
    ASSERT_TRUE(first.publication) << first.problem;
    const auto second = file.publish("/elsewhere", true);
    EXPECT_FALSE(second.publication);
    ASSERT_TRUE(second.existing);
    EXPECT_EQ(second.existing->folder, "/home/me/Corvid");
    EXPECT_FALSE(second.existing->isFixed);
    EXPECT_EQ(second.existing->process, getpid());
    // The host's is another.
    EXPECT_TRUE(VolumeFile::ofHost(folder()).publish("/elsewhere", true).publication);
    EXPECT_EQ(first.publication->update("/srv/new\xFF", true), "");
    ASSERT_TRUE(file.read());
    EXPECT_EQ(file.read()->folder, "/srv/new\xFF");
    EXPECT_TRUE(file.read()->isFixed);
    first.publication.reset();
    EXPECT_FALSE(file.read());
    EXPECT_TRUE(file.publish("/elsewhere", true).publication);
}

TEST_F(WatcherTest, aVolumeThatCannotBeIsRefusedWithItsName) {
    makeRun();
    const auto file = VolumeFile::ofHost(folder());
    for (const std::string& bad : {std::string("relative"), std::string(""), std::string("/a\nb"),
                                   std::string("/a\0b", 4), "/" + std::string(5000, 'x')}) {
        const auto published = file.publish(bad, true);
        EXPECT_FALSE(published.publication);
        EXPECT_THAT(published.problem, testing::HasSubstr(bad));
    }
}

TEST_F(WatcherTest, tellsOfVolumesAndTheirPublishersDeath) {
    const auto file = VolumeFile::ofHost(folder());
    const auto watcher = file.watch(queue_, [this](const std::optional<PublishedVolume>& volume) {
        told_.add(volume ? volume->folder : "none");
    });
    EXPECT_EQ(told_.next(), "none");
    makeRun();
    auto published = file.publish("/one", true);
    ASSERT_TRUE(published.publication) << published.problem;
    EXPECT_EQ(told_.next(), "/one");
    published.publication->update("/two", true);
    EXPECT_EQ(told_.next(), "/two");
    published.publication.reset();
    EXPECT_EQ(told_.next(), "none");
    ChildProcess peer({CORVID_PORT_PEER, "publish", "/three"});
    ASSERT_EQ(peer.readLine(), "ready");
    EXPECT_EQ(told_.next(), "/three");
    peer.signal(SIGKILL);
    EXPECT_EQ(told_.next(), "none");
}

} // namespace corvid::test
