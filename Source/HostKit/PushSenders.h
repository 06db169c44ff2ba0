#pragma once

#include "Core/Base/Mutex.h"
#include "HostKit/PushLane.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace corvid {
class MessagePortService;
}

namespace corvid::hostkit {

/// Sends pushes to the extensions: a lane for each of them, and a few threads that they share.
///
/// A thread takes the oldest push of a lane, sends it, and turns to the lane that has waited
/// longest. An extension that hangs costs its thread the send's time-out, a second, and is then
/// left alone for a pause. One thread is kept for those whose last push arrived: so
/// extensions that hang hold up one that answers only until they are found to: a second for each
/// kMostThreads of them.
///
/// A push that failed is tried again for as long as the port may be there: when the system lacks
/// descriptors or memory, and so cannot tell, the pushes wait. Only a port that is gone ends its
/// lane. Any thread.
class PushSenders {
public:
    /// Threads of all lanes together.
    static constexpr std::size_t kMostThreads = 16;
    /// Extensions at a time.
    static constexpr std::size_t kMostLanes = 64;
    /// Pushes that wait in all lanes together: the items of two large folders for two extensions.
    /// Beyond that, the lane in which most wait loses its oldest, and onProblem says so. What the
    /// extension shows of such an item is old until it asks again, as for a folder that is opened.
    static constexpr std::size_t kMostWaiting = 500'000;
    /// After a failure; doubled with each one more up to the longest.
    static constexpr std::chrono::milliseconds kFirstPause{100};
    static constexpr std::chrono::milliseconds kLongestPause{1'000};

    using PushRef = PushLane::PushRef;

    /// `service` is not owned. `onGone` is called on a thread of this object, once a lane, when its
    /// port is found to be gone; nothing is sent to it after that. `onProblem`, on any thread, gets
    /// a text for people. Neither may call this object. `mostWaiting` is smaller in tests.
    PushSenders(MessagePortService& service, std::function<void(const std::string& port)> onGone,
                std::function<void(const std::string& text)> onProblem,
                std::size_t mostWaiting = kMostWaiting);
    ~PushSenders();
    PushSenders(const PushSenders&) = delete;
    PushSenders& operator=(const PushSenders&) = delete;

    enum class Added { isNew, isKnown, isFull, isStopped };
    /// Serves the port from now on, unless kMostLanes are served.
    Added add(const std::string& port);
    /// Drops what waits for the port. False when it is not served.
    bool remove(const std::string& port);
    /// The same, unless the port was added again after onGone.
    bool removeGone(const std::string& port);
    std::size_t count() const;

    /// Queues `push` for every lane. Where the system gives no thread, it waits for the next call.
    void push(const PushRef& push);

    /// False when something still waits at `deadline`. Ports that are gone wait for nothing.
    bool waitUntilSent(std::chrono::steady_clock::time_point deadline);

    /// Drops what waits; returns when no thread runs any more, after a send under way (a second at
    /// most). Not from the functions given.
    void stop();

private:
    using Clock = std::chrono::steady_clock;
    struct Lane {
        std::string port;
        PushLane waiting;
        bool isSending = false;
        bool isGone = false;
        bool isRemoved = false;
        bool hasLostSome = false;
        std::chrono::milliseconds pause{0}; ///< 0 when the last push arrived
        Clock::time_point notBefore;
        std::uint64_t turn = 0; ///< when it was last served
    };
    using LaneRef = std::shared_ptr<Lane>;
    enum class Outcome { sent, failed, gone };

    void run();
    Outcome send(const std::string& port, const PushLane::Push& push) noexcept;
    /// The lane to be served now, else null; then `until` is when to look again, if ever.
    LaneRef nextLane(Clock::time_point now, Clock::time_point& until) CORVID_REQUIRES(mutex_);
    void settle(Lane& lane, PushRef push, Outcome outcome) CORVID_REQUIRES(mutex_);
    void clear(Lane& lane) CORVID_REQUIRES(mutex_);
    /// Makes room when too many wait: the name of a lane that lost its first, else "".
    std::string dropOldest() CORVID_REQUIRES(mutex_);
    /// One thread more if a lane waits for one. False when the system gives none and none runs.
    bool startThread() CORVID_REQUIRES(mutex_);
    void sayNoThread();

    MessagePortService& service_;
    const std::function<void(const std::string&)> onGone_;
    const std::function<void(const std::string&)> onProblem_;
    const std::size_t mostWaiting_;

    mutable Mutex mutex_;
    std::condition_variable work_;
    std::condition_variable settled_;
    std::map<std::string, LaneRef> lanes_ CORVID_GUARDED_BY(mutex_);
    std::vector<std::thread> threads_ CORVID_GUARDED_BY(mutex_);
    std::size_t idleCount_ CORVID_GUARDED_BY(mutex_) = 0;
    /// Threads that send to lanes whose last push failed.
    std::size_t doubtfulCount_ CORVID_GUARDED_BY(mutex_) = 0;
    std::size_t waitingCount_ CORVID_GUARDED_BY(mutex_) = 0;
    std::uint64_t turns_ CORVID_GUARDED_BY(mutex_) = 0;
    bool isStopped_ CORVID_GUARDED_BY(mutex_) = false;
    bool hasSaidNoThread_ CORVID_GUARDED_BY(mutex_) = false;
};

} // namespace corvid::hostkit
