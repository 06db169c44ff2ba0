#pragma once

#include "Extensions/FileManagers/Link/BadgeCache.h"
#include "Extensions/FileManagers/Link/LinkClient.h"
#include "Extensions/FileManagers/Link/LinkServer.h"
#include "Platform/Unix/UnixClock.h"
#include "Tests/Extensions/FileManagers/Link/ScriptedExtension.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// Both ends of the Finder link, for tests over a real socket.

namespace corvid::link {

/// A front end that remembers what it was told.
class FrontEnd : private LinkClient::Delegate {
public:
    static constexpr std::chrono::seconds kPatience{60};

    explicit FrontEnd(const RuntimeFolder& folder, std::uint16_t oldest = kOldestVersion,
                      std::uint16_t newest = kNewestVersion, std::string program = {},
                      std::chrono::milliseconds firstPause = std::chrono::milliseconds(100))
        : client(*this, {"test", std::move(program), {}, oldest, newest, folder, firstPause}),
          cache(client, [this](const std::string&, const std::vector<std::string>& names,
                               BadgeCache::Change change) {
              ++redraws;
              lastChange = change;
              redrawn.insert(redrawn.end(), names.begin(), names.end());
          }) {
        client.open();
    }

    void until(const std::function<bool()>& isDone) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!isDone()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd fd{client.fd(), POLLIN, 0};
            ASSERT_GT(left.count(), 0) << "it did not happen; last loss: " << loss;
            if (::poll(&fd, 1, static_cast<int>(left.count())) > 0) {
                client.dispatch();
            }
        }
    }
    void untilVolume() {
        until([this] { return !volume.empty(); });
    }

    LinkClient client;
    BadgeCache cache;
    std::string volume;
    std::string loss;
    std::string refusal;
    std::vector<std::string> redrawn;
    std::map<std::string, std::string> news; ///< by name, the newest
    int redraws = 0;
    BadgeCache::Change lastChange{};
    int ups = 0;
    std::optional<StatusReply> status;
    std::optional<Pong> pong;

private:
    void linkUp() override {
        ++ups;
        cache.linkUp();
    }
    void linkDown(const std::string& reason) override { loss = reason; }
    void linkRefused(const std::string& reason) override { refusal = reason; }
    void received(Message message) override {
        if (const auto* badges = std::get_if<Badges>(&message)) {
            cache.received(*badges);
            for (const ItemBadge& item : badges->items) {
                news[item.name] = item.badge;
            }
        } else if (const auto* place = std::get_if<Volume>(&message)) {
            volume = place->folder;
            cache.received(*place);
        } else if (const auto* reply = std::get_if<StatusReply>(&message)) {
            status = *reply;
        } else if (const auto* answer = std::get_if<Pong>(&message)) {
            pong = *answer;
        }
    }
    void woken() override { cache.woken(); }
};

/// The extension's end, on a thread of its own.
class Serving {
public:
    Serving(const RuntimeFolder& folder, Script& script,
            std::chrono::milliseconds greetingTime = std::chrono::seconds(5))
        : opened_(folder.open(RuntimeFolder::IfMissing::create)),
          server_(listenIn(opened_.fd.get()), *VolumeMapping::make("/v"), script.monitor, clock_,
                  {"1.2", 77, greetingTime}) {
        server_.finder().start([this, &script] {
            return std::make_shared<ScriptedExtension>(script, server_.finder());
        });
        thread_ = std::thread([this] { server_.run(); });
    }
    ~Serving() {
        server_.stop();
        thread_.join();
        server_.finder().stop();
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    FinderRole& finder() { return server_.finder(); }
    void stop() { server_.stop(); }

    /// What the thread that serves the front ends has taken of a processor.
    std::chrono::nanoseconds processorTime() {
        clockid_t clock{};
        timespec time{};
        EXPECT_EQ(::pthread_getcpuclockid(thread_.native_handle(), &clock), 0);
        EXPECT_EQ(::clock_gettime(clock, &time), 0);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }

private:
    RuntimeFolder::Opened opened_;
    UnixClock clock_;
    LinkServer server_;
    std::thread thread_;
};

/// When a peer connects; a later one is told to by the test.
enum class Opens { atOnce, later };

/// A peer that says what no front end would, and reads when the test has it read.
class RawPeer {
public:
    explicit RawPeer(const RuntimeFolder& folder, Opens opens = Opens::atOnce)
        : path_(folder.path() + "/" + kSocketName),
          channel_(OwnedFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))) {
        if (opens == Opens::atOnce) {
            connect();
        }
    }

    /// Connects, and waits for room where many others do. Takes no descriptor.
    void connect() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_LT(path_.size(), sizeof address.sun_path);
        path_.copy(address.sun_path, path_.size());
        const int flags = ::fcntl(channel_.fd(), F_GETFL);
        ::fcntl(channel_.fd(), F_SETFL, flags & ~O_NONBLOCK);
        EXPECT_EQ(
            ::connect(channel_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
        ::fcntl(channel_.fd(), F_SETFL, flags);
    }
    /// Whether the extension says anything within `time`.
    bool hears(std::chrono::milliseconds time) {
        pollfd entry{channel_.fd(), POLLIN, 0};
        return ::poll(&entry, 1, static_cast<int>(time.count())) == 1;
    }

    /// Sends all of `bytes`, and waits where there is no room.
    void send(const Bytes& bytes) {
        ByteView left(bytes);
        while (!left.empty()) {
            const ssize_t count = ::send(channel_.fd(), left.data(), left.size(), MSG_NOSIGNAL);
            if (count > 0) {
                left = left.subspan(static_cast<std::size_t>(count));
            } else {
                ASSERT_EQ(errno, EAGAIN);
                waitFor(POLLOUT);
            }
        }
    }
    void say(const Message& message) {
        Bytes bytes;
        ASSERT_TRUE(appendFrame(bytes, message));
        send(bytes);
    }
    /// Sends as much of `bytes` as is taken before nothing has been for a while; how much.
    std::size_t sendWhatIsTaken(const Bytes& bytes) {
        ByteView left(bytes);
        pollfd entry{channel_.fd(), POLLOUT, 0};
        while (!left.empty() && ::poll(&entry, 1, 500) == 1) {
            const ssize_t count = ::send(channel_.fd(), left.data(), left.size(), MSG_NOSIGNAL);
            left = left.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return bytes.size() - left.size();
    }

    /// The next message of that kind; others before it are dropped.
    template <class Kind>
    Kind hear() {
        while (true) {
            while (std::optional<Message> message = channel_.next()) {
                if (auto* const heard = std::get_if<Kind>(&*message)) {
                    return std::move(*heard);
                }
            }
            waitFor(POLLIN);
            if (::testing::Test::HasFatalFailure() || !channel_.receive()) {
                ADD_FAILURE() << "the extension has not said it";
                return {};
            }
        }
    }
    /// Whether the other end hangs up, after whatever it says.
    bool isHungUpOn() {
        pollfd entry{channel_.fd(), POLLIN, 0};
        std::array<char, 4096> buffer{};
        while (::poll(&entry, 1, 60'000) > 0) {
            if (::recv(channel_.fd(), buffer.data(), buffer.size(), 0) <= 0) {
                return true;
            }
        }
        return false;
    }

private:
    void waitFor(short events) {
        pollfd entry{channel_.fd(), events, 0};
        ASSERT_EQ(::poll(&entry, 1, 60'000), 1) << "it did not happen";
    }

    std::string path_;
    LinkChannel channel_;
};

} // namespace corvid::link
