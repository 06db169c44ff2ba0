#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Unix/OwnedFd.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

struct epoll_event; // NOLINT(readability-identifier-naming): the system's

namespace corvid {

/// What an EventLoop calls, on its thread.
class EventSource {
public:
    virtual ~EventSource() = default;
    /// The descriptor is ready; `events` are those of epoll_ctl(2).
    virtual void onEvents([[maybe_unused]] std::uint32_t events) {}
    /// Once, after everything that was ready together has been reported; see atRoundEnd().
    virtual void onRoundEnd() {}
    /// The moment given to setTimer() has come.
    virtual void onTimer() {}
};

/// A source that can wait for its descriptor by itself, which costs less than to have it told.
class SoleSource : public EventSource {
public:
    /// Makes ready to wait. False when that cannot be now.
    virtual bool prepareToWait() = 0;
    /// Waits until the descriptor is ready, or for interrupt(), and does what onEvents() does.
    virtual void waitAndServe() = 0;
    /// Ends the wait, or has the next one end at once. Any thread, after prepareToWait().
    virtual void interrupt() = 0;
};

/// Waits for descriptors, blocks and timers on one thread, and does not wake up but for them.
///
/// post() and stop() may be called from any thread, the rest on the loop's thread only. Sources
/// are not owned; a source that goes away is unwatched first.
class EventLoop {
public:
    /// Throws std::system_error when the process has no descriptors left.
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Serves until stop(); blocks posted before that are still run.
    void run();
    void stop();

    /// Runs `block` later on the loop's thread, in the order of the calls.
    void post(std::function<void()> block);
    /// True on the thread that is in run().
    bool isCurrent() const { return thread_.load() == std::this_thread::get_id(); }

    /// Calls `source` when `fd` has `events`. False when the system refuses.
    bool watch(int fd, std::uint32_t events, EventSource& source);
    /// As above, and leaves the wait to `source` while it is all that there is to wait for.
    bool watch(int fd, std::uint32_t events, SoleSource& source);
    /// Takes `fd` out; events of this round that `source` has not seen are dropped.
    void unwatch(int fd, EventSource& source);
    /// Calls onRoundEnd() of `source` at the end of this round.
    void atRoundEnd(EventSource& source);
    /// Calls onTimer() of `source` at `moment`, once; nothing takes the timer away.
    void setTimer(EventSource& source, std::optional<std::chrono::steady_clock::time_point> moment);

private:
    bool isOver();
    bool waitForSole();
    bool waitForAll();
    int waitMilliseconds() const;
    void runTimers();
    void runBlocks();
    void wake() CORVID_REQUIRES(mutex_);

    OwnedFd epoll_;
    OwnedFd wakeUp_;
    std::atomic<std::thread::id> thread_{};
    std::vector<epoll_event> ready_;
    std::size_t readyCount_ = 0;
    std::size_t watchedCount_ = 0;
    SoleSource* sole_ = nullptr;
    std::vector<EventSource*> roundEnds_;
    std::vector<std::pair<EventSource*, std::chrono::steady_clock::time_point>> timers_;

    Mutex mutex_;
    std::vector<std::function<void()>> blocks_ CORVID_GUARDED_BY(mutex_);
    bool stopped_ CORVID_GUARDED_BY(mutex_) = false;
    SoleSource* waiting_ CORVID_GUARDED_BY(mutex_) = nullptr; ///< the sole source, while it waits
};

} // namespace corvid
