#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Fake/CallLog.h"
#include "Platform/Interfaces/Dispatch.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace corvid {

/// A serial queue on a thread of its own.
class FakeDispatchQueue final : public DispatchQueue {
public:
    explicit FakeDispatchQueue(std::string label);
    /// Runs the blocks given so far. Not on the queue itself.
    ~FakeDispatchQueue() override;

    const std::string& label() const override { return label_; }
    void async(std::function<void()> block) override;
    bool isCurrent() const override;

    /// Returns when every block given so far has run; not on the queue itself.
    void drain();

private:
    void run();

    std::string label_;
    Mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> blocks_ CORVID_GUARDED_BY(mutex_);
    bool isEnding_ CORVID_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

/// Records each queue that is made: `serialQueue LABEL`; asking for it again is not recorded.
class FakeDispatch final : public Dispatch {
public:
    explicit FakeDispatch(CallLog& calls);
    ~FakeDispatch() override;

    DispatchQueue& serialQueue(std::string_view label) override;
    /// Waits for all that was given to the queues so far. Not on one of them.
    void drain();

private:
    CallLog& calls_;
    Mutex mutex_;
    std::map<std::string, std::unique_ptr<FakeDispatchQueue>, std::less<>>
        queues_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
