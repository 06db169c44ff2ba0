#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/Dispatch.h"

#include <dispatch/dispatch.h>
#include <map>
#include <memory>

namespace corvid {

/// A serial queue of libdispatch, with default quality of service and no target queue.
class MacDispatchQueue final : public DispatchQueue {
public:
    explicit MacDispatchQueue(std::string label);
    /// What is on the queue still runs.
    ~MacDispatchQueue() override;
    MacDispatchQueue(const MacDispatchQueue&) = delete;
    MacDispatchQueue& operator=(const MacDispatchQueue&) = delete;

    const std::string& label() const override { return label_; }
    void async(std::function<void()> block) override;
    bool isCurrent() const override;

    /// For calls of the system that take a queue. Borrowed.
    dispatch_queue_t native() const { return queue_; }

private:
    const std::string label_;
    const dispatch_queue_t queue_;
};

/// Serial queues of libdispatch.
class MacDispatch final : public Dispatch {
public:
    DispatchQueue& serialQueue(std::string_view label) override;

private:
    Mutex mutex_;
    std::map<std::string, std::unique_ptr<MacDispatchQueue>, std::less<>>
        queues_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
