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
    /// Takes `fd` out; events of this round that `source` has not seen are dropped.
    void unwatch(int fd, EventSource& source);
    /// Calls onRoundEnd() of `source` at the end of this round.
    void atRoundEnd(EventSource& source);
    /// Calls onTimer() of `source` at `moment`, once; nothing takes the timer away.
    void setTimer(EventSource& source, std::optional<std::chrono::steady_clock::time_point> moment);

private:
    int waitMilliseconds() const;
    void runTimers();
    void runBlocks();
    void wake();

    OwnedFd epoll_;
    OwnedFd wakeUp_;
    std::atomic<std::thread::id> thread_{};
    std::vector<epoll_event> ready_;
    std::size_t readyCount_ = 0;
    std::vector<EventSource*> roundEnds_;
    std::vector<std::pair<EventSource*, std::chrono::steady_clock::time_point>> timers_;

    Mutex mutex_;
    std::vector<std::function<void()>> blocks_ CORVID_GUARDED_BY(mutex_);
    bool stopped_ CORVID_GUARDED_BY(mutex_) = false;
};

} // namespace corvid
