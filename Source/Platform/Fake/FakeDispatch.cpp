#include "Platform/Fake/FakeDispatch.h"

#include <future>
#include <utility>
#include <vector>

namespace corvid {

FakeDispatchQueue::FakeDispatchQueue(std::string label)
    : label_(std::move(label)), thread_([this] { run(); }) {}

FakeDispatchQueue::~FakeDispatchQueue() {
    {
        const MutexLock lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void FakeDispatchQueue::async(std::function<void()> block) {
    const MutexLock lock(mutex_);
    blocks_.push_back(std::move(block));
    changed_.notify_all();
}

bool FakeDispatchQueue::isCurrent() const {
    return std::this_thread::get_id() == thread_.get_id();
}

void FakeDispatchQueue::drain() {
    auto reached = std::make_shared<std::promise<void>>();
    auto future = reached->get_future();
    async([reached] { reached->set_value(); });
    future.wait();
}

void FakeDispatchQueue::run() {
    for (;;) {
        std::function<void()> block;
        {
            MutexLock lock(mutex_);
            while (blocks_.empty() && !isEnding_) {
                lock.wait(changed_);
            }
            if (blocks_.empty()) {
                return;
            }
            block = std::move(blocks_.front());
            blocks_.pop_front();
        }
        block();
    }
}

FakeDispatch::FakeDispatch(CallLog& calls) : calls_(calls) {}

FakeDispatch::~FakeDispatch() = default;

DispatchQueue& FakeDispatch::serialQueue(std::string_view label) {
    const MutexLock lock(mutex_);
    auto found = queues_.find(label);
    if (found == queues_.end()) {
        calls_.add("serialQueue " + std::string(label));
        found = queues_
                    .emplace(std::string(label),
                             std::make_unique<FakeDispatchQueue>(std::string(label)))
                    .first;
    }
    return *found->second;
}

void FakeDispatch::drain() {
    std::vector<FakeDispatchQueue*> queues;
    {
        const MutexLock lock(mutex_);
        for (const auto& [label, queue] : queues_) {
            queues.push_back(queue.get());
        }
    }
    for (FakeDispatchQueue* queue : queues) {
        queue->drain();
    }
}

} // namespace corvid
