// SIGTERM to the extension while two senders push badges without a pause: whatever moment it
// comes at, the extension ends as if nobody had pushed.

#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/Mutex.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Tests/Extensions/Finder/BadgeSender.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/RealPlatform.h"
#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>

namespace corvid {
namespace {

using testing::EndsWith;

/// The host's port, which notes the extensions that come and go.
class Host {
public:
    explicit Host(RealPlatform& platform)
        : port_(platform.messagePorts.createLocal(
              CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue(),
              [this](MessagePort&, std::int32_t id, std::optional<ByteView> data) {
                  take(id, data.value_or(ByteView()));
                  return std::nullopt;
              })) {
        platform.messagePorts.setDispatchQueue(*port_, platform.dispatch.serialQueue("host"));
    }

    /// Waits for the next registration, and gives the port's name.
    std::string nextPort() {
        MutexLock lock(mutex_);
        while (come_.empty()) {
            lock.wait(changed_);
        }
        std::string name = std::move(come_.front());
        come_.pop_front();
        return name;
    }
    /// Waits for the next withdrawal, but not for ever, and gives the port's name.
    std::string nextGone() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        MutexLock lock(mutex_);
        while (gone_.empty()) {
            if (!lock.waitUntil(changed_, deadline)) {
                return "no withdrawal";
            }
        }
        std::string name = std::move(gone_.front());
        gone_.pop_front();
        return name;
    }

private:
    void take(std::int32_t id, ByteView data) {
        const std::optional<Value> root = unarchivedObject(data);
        const Dictionary* message = root ? root->asDictionary() : nullptr;
        if (id != CVMAMessageID::updatePortIDs || message == nullptr) {
            return;
        }
        const std::string* name = message->find("portId")->asString();
        const bool isThere = *message->find("register")->asBoolean();
        const MutexLock lock(mutex_);
        isThere ? come_.push_back(*name) : gone_.push_back(*name);
        changed_.notify_all();
    }

    Mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> come_ CORVID_GUARDED_BY(mutex_);
    std::deque<std::string> gone_ CORVID_GUARDED_BY(mutex_);
    const MessagePortRef port_;
};

/// The last line of the one file below `folder`.
std::string lastLogLine(const std::filesystem::path& folder) {
    std::string last;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".log") {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                last = line;
            }
        }
    }
    return last;
}

/// How often the extension is ended in each test; the variable is for longer runs by hand.
int ends() {
    const char* const wanted = std::getenv("CORVID_ENDS");
    return wanted != nullptr ? std::max(1, std::atoi(wanted)) : 100;
}

class EndUnderPushes : public testing::Test {
protected:
    EndUnderPushes() {
        setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
        platform_.emplace();
        host_.emplace(*platform_);
        std::filesystem::create_directory(volume_);
    }
    ~EndUnderPushes() override {
        host_.reset();
        platform_.reset();
        unsetenv("XDG_RUNTIME_DIR");
    }

    /// One life of the extension, which ends after each sender has pushed `pushes` badges.
    void liveAndEnd(int pushes, bool isLogging) {
        const std::string state = folder_ / "state";
        ChildProcess extension(
            {std::string(CORVID_BIN_DIR) + "/corvid-finder-ext", "--volume", volume_},
            {{"HOME", folder_.path()},
             {"XDG_STATE_HOME", state},
             {"CVD_ENABLE_FINDER_EXT_LOGGING", isLogging ? "1" : "0"}});
        const std::string port = host_->nextPort();
        {
            BadgeSender one(platform_->messagePorts, port, "one.txt", std::nullopt);
            BadgeSender two(platform_->messagePorts, port, "two.txt", std::nullopt);
            one.waitFor(pushes);
            two.waitFor(pushes);
            extension.signal(SIGTERM);
        }
        ASSERT_EQ(extension.wait(), 0) << extension.readErrors();
        ASSERT_EQ(host_->nextGone(), port);
        if (isLogging) {
            ASSERT_THAT(lastLogLine(state), EndsWith("<UI> Deinit of CVMABadgeHandler"));
            std::filesystem::remove_all(state);
        }
    }

    TemporaryFolder folder_;
    const std::string volume_ = folder_ / "volume";
    std::optional<RealPlatform> platform_;
    std::optional<Host> host_;
};

TEST_F(EndUnderPushes, IsThatOfAnExtensionThatNobodyPushesTo) {
    for (int i = 0; i < ends() && !HasFatalFailure(); ++i) {
        SCOPED_TRACE("end " + std::to_string(i));
        liveAndEnd(i % 7, false);
    }
}

TEST_F(EndUnderPushes, LeavesAWholeLogFile) {
    for (int i = 0; i < ends() && !HasFatalFailure(); ++i) {
        SCOPED_TRACE("end " + std::to_string(i));
        liveAndEnd(i % 7, true);
    }
}

} // namespace
} // namespace corvid
