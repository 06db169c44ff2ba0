// The whole conversation with a host application that was written in another language from the
// protocol's page alone.

#include "Core/Base/Mutex.h"
#include "Extensions/Finder/CVMABadgeHandler.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePort.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Platform/Unix/MessageFrame.h"
#include "Platform/Unix/PortWatcher.h"
#include "Platform/Unix/VolumeFile.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/RealPlatform.h"
#include "Tests/Support/RecordingReportingService.h"
#include "Tests/Support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace corvid::test {

namespace {

using testing::ElementsAre;

URL item(const std::string& name) {
    return URL::fileURL("/Volumes/Corvid/" + name).value();
}

class Delegate final : public CVMABadgeDelegate {
public:
    void setBadge(CVMABadgeID badge, const URL& url) override {
        const MutexLock lock(mutex_);
        pushed_.push_back(std::string(badge.rawValue()) + " " + url.path());
        changed_.notify_one();
    }
    /// Waits for the next push.
    std::string next() {
        MutexLock lock(mutex_);
        while (pushed_.empty()) {
            lock.wait(changed_);
        }
        std::string first = std::move(pushed_.front());
        pushed_.pop_front();
        return first;
    }

private:
    Mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> pushed_ CORVID_GUARDED_BY(mutex_);
};

class PythonHostTest : public testing::Test {
protected:
    PythonHostTest() {
        setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
        platform_ = std::make_unique<RealPlatform>();
        host_ = std::make_unique<ChildProcess>(std::vector<std::string>{
            CORVID_PYTHON, CORVID_EXAMPLE_HOST, "/srv/volume", "plan.txt=synced",
            "new folder/gr\xC3\xBC\xC3\x9F.txt=checkedOut"});
        EXPECT_EQ(host_->readLine(), "ready") << host_->readErrors();
    }
    ~PythonHostTest() override {
        host_.reset();
        platform_.reset();
        unsetenv("XDG_RUNTIME_DIR");
    }

    TemporaryFolder folder_;
    RecordingReportingService reporting_;
    std::unique_ptr<RealPlatform> platform_;
    std::unique_ptr<ChildProcess> host_;
    const std::string portId_ =
        std::string(CVMAMessagePortID(CVMAMessagePortID::finderExtension).rawValue()) + "-TEST";
};

} // namespace

TEST_F(PythonHostTest, holdsTheWholeConversation) {
    const auto delegate = std::make_shared<Delegate>();
    const CVMABadgeHandler handler(portId_, *delegate);
    CVMAMessagePort::registerPort(portId_, true);
    EXPECT_EQ(host_->readLine(), "registered");

    EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(item("plan.txt")), CVMABadgeID::synced);
    EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(item("new folder/gr\xC3\xBC\xC3\x9F.txt")),
              CVMABadgeID::checkedOut);
    EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(item("unknown")), CVMABadgeID::none);

    const auto menu =
        CVMAMessagePort::requestActionsForItems({item("plan.txt"), item("unknown")}, false);
    ASSERT_EQ(menu.size(), 1U);
    EXPECT_EQ(menu[0]->title, "Share 2 Items");
    EXPECT_EQ(menu[0]->tag, 1);
    CVMAMessagePort::perform(menu[0], {item("plan.txt"), item("unknown")});
    EXPECT_EQ(host_->readLine(), "clicked 1 plan.txt unknown");

    CVMAMessagePort::updatePathCache(item("new folder"), true);
    EXPECT_EQ(host_->readLine(), "shown new folder");
    CVMAMessagePort::updatePathCache(item("new folder"), false);
    EXPECT_EQ(host_->readLine(), "left new folder");

    host_->goOn("plan.txt=error");
    EXPECT_EQ(delegate->next(), "error /Volumes/Corvid/plan.txt");
    EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(item("plan.txt")), CVMABadgeID::error);

    CVMAMessagePort::registerPort(portId_, false);
    EXPECT_EQ(host_->readLine(), "unregistered");
    for (const auto& line : reporting_.lines()) {
        EXPECT_EQ(line.level, 5) << line.message;
    }
}

TEST_F(PythonHostTest, findsTheExtensionsThatRunAlready) {
    host_.reset();
    const auto delegate = std::make_shared<Delegate>();
    const CVMABadgeHandler handler(portId_, *delegate);
    ChildProcess host({CORVID_PYTHON, CORVID_EXAMPLE_HOST, "/srv/volume"});
    ASSERT_EQ(host.readLine(), "ready");
    host.goOn("a b.txt=cloud");
    EXPECT_EQ(delegate->next(), "cloud /Volumes/Corvid/a b.txt");
}

TEST_F(PythonHostTest, keepsAnExtensionThatHangs) {
    const auto delegate = std::make_shared<Delegate>();
    const CVMABadgeHandler handler(portId_, *delegate);
    PortFolder folder(RuntimeFolder::ofThisUser());
    auto hung = folder.take(portId_ + "-HUNG");
    ASSERT_TRUE(hung);
    std::vector<PortFolder::Connection> waiting;
    while (waiting.empty() || waiting.back().result == PortFolder::ConnectResult::connected) {
        waiting.push_back(folder.connect(portId_ + "-HUNG", std::nullopt));
    }
    // Whoever is well gets both; the second shows that the host is done with the first.
    for (const char* path : {"first", "second"}) {
        host_->goOn(std::string(path) + "=error");
        EXPECT_EQ(delegate->next(), std::string("error /Volumes/Corvid/") + path);
    }
    waiting.clear();
    for (int fd = 0; (fd = accept4(hung->fd.get(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        close(fd);
    }
    host_->goOn("third=error");
    pollfd connection{hung->fd.get(), POLLIN, 0};
    ASSERT_EQ(poll(&connection, 1, 60'000), 1);
    const OwnedFd fd(accept4(hung->fd.get(), nullptr, nullptr, SOCK_CLOEXEC));
    std::array<std::uint8_t, kFrameHeaderBytes> bytes{};
    ASSERT_EQ(recv(fd.get(), bytes.data(), bytes.size(), MSG_WAITALL),
              static_cast<ssize_t>(bytes.size()));
    const auto header = decodedHeader(bytes);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->messageID, CVMAMessageID(CVMAMessageID::provideBadge).rawValue());
    PortFolder::release(*hung);
}

TEST_F(PythonHostTest, isAsShortAsItPromises) {
    std::ifstream source(CORVID_EXAMPLE_HOST);
    EXPECT_LT(std::count(std::istreambuf_iterator<char>(source), {}, '\n'), 150);
}

TEST_F(PythonHostTest, publishesItsVolume) {
    const auto volume = VolumeFile::ofHost(RuntimeFolder::ofThisUser());
    const auto published = volume.read();
    ASSERT_TRUE(published);
    EXPECT_EQ(published->folder, "/srv/volume");
    EXPECT_TRUE(published->isFixed);
    EXPECT_EQ(published->process, host_->identifier());
    EXPECT_TRUE(volume.publish("/elsewhere", true).existing);
    host_.reset();
    EXPECT_FALSE(volume.read());
}

TEST_F(PythonHostTest, refusesASecondHost) {
    ChildProcess second({CORVID_PYTHON, CORVID_EXAMPLE_HOST, "/srv/other"});
    EXPECT_EQ(second.readLine(), std::nullopt);
    EXPECT_THAT(second.readErrors(), testing::HasSubstr("another process serves"));
}

} // namespace corvid::test
