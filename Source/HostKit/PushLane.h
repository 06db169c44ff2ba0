#pragma once

#include "Core/Base/Bytes.h"
#include "Core/Base/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>

namespace corvid {
class MessagePortService;
}

namespace corvid::hostkit {

/// The pushes on their way to one extension, sent by a thread of their own, so that an extension
/// that hangs holds up nobody but itself. Of several badges of one item only the newest waits.
/// Any thread.
class PushLane {
public:
    using Payload = std::shared_ptr<const Bytes>;

    /// Sends to the port `portName` of `service`, which is not owned. `onDead` is called once, on
    /// the lane's thread, when the port is found to be gone; nothing is sent after that.
    PushLane(MessagePortService& service, std::string portName, std::function<void()> onDead);

    /// Drops what waits, and waits for a send under way (a second at most).
    ~PushLane();
    PushLane(const PushLane&) = delete;
    PushLane& operator=(const PushLane&) = delete;

    /// Queues the message `payload` about the item `path`.
    void push(const std::string& path, Payload payload);

    /// Drops what waits and lets the thread end, without waiting for it.
    void stop();

    /// True once the thread has nothing more to do, so that the destructor will not wait.
    bool isFinished() const;

    /// False when something still waits at `deadline`. True at once for a port that is gone.
    bool waitUntilSent(std::chrono::steady_clock::time_point deadline);

private:
    struct Push {
        std::string path;
        Payload payload;
    };
    enum class Outcome { sent, failed, dead };

    void run();
    Outcome send(const Bytes& payload);

    MessagePortService& service_;
    const std::string portName_;
    const std::function<void()> onDead_;

    mutable Mutex mutex_;
    std::condition_variable changed_;
    std::list<Push> waiting_ CORVID_GUARDED_BY(mutex_);
    std::unordered_map<std::string, std::list<Push>::iterator> byPath_ CORVID_GUARDED_BY(mutex_);
    bool isSending_ CORVID_GUARDED_BY(mutex_) = false;
    bool isStopped_ CORVID_GUARDED_BY(mutex_) = false;
    bool isFinished_ CORVID_GUARDED_BY(mutex_) = false;

    std::thread thread_;
};

} // namespace corvid::hostkit
