#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/Dispatch.h"
#include "Platform/Unix/EventLoop.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace corvid {

class MessagePortServer;

/// A serial queue: one thread that runs blocks and serves what is attached to the queue, in turn.
class UnixDispatchQueue final : public DispatchQueue {
public:
    explicit UnixDispatchQueue(std::string label);
    /// Runs the blocks given so far and ends the thread. Not on the queue itself.
    ~UnixDispatchQueue() override;

    const std::string& label() const override { return label_; }
    void async(std::function<void()> block) override;
    bool isCurrent() const override;

    /// Runs `block` on the queue and returns when it has run; on the queue itself, at once.
    void sync(const std::function<void()>& block);

    /// For what serves descriptors on this queue; see EventLoop for the thread.
    EventLoop& loop() { return loop_; }
    /// The server of this queue's message ports. Lives as long as the queue. On the queue.
    MessagePortServer& messagePorts();

private:
    std::string label_;
    EventLoop loop_;
    std::unique_ptr<MessagePortServer> messagePorts_;
    std::thread thread_;
};

/// Queues of this process. The queues end with it, so what is attached to them goes before.
class UnixDispatch final : public Dispatch {
public:
    UnixDispatch();
    ~UnixDispatch() override;
    DispatchQueue& serialQueue(std::string_view label) override;

private:
    Mutex mutex_;
    std::map<std::string, std::unique_ptr<UnixDispatchQueue>, std::less<>>
        queues_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
