#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace corvid {

/// Runs blocks one at a time in the order in which they were given.
class DispatchQueue {
public:
    virtual ~DispatchQueue() = default;
    virtual const std::string& label() const = 0;
    /// Runs `block` later, on the queue. Any thread.
    virtual void async(std::function<void()> block) = 0;
    /// True on the thread that runs a block of this queue.
    virtual bool isCurrent() const = 0;
};

/// The process's serial queues.
class Dispatch {
public:
    virtual ~Dispatch() = default;
    /// The serial queue called `label`, made at the first call (safe when several threads make it)
    /// and kept for the life of this object, which owns it. Any thread.
    virtual DispatchQueue& serialQueue(std::string_view label) = 0;
};

} // namespace corvid
