#include "Platform/Mac/MacDispatch.h"

#include <utility>

// Plain C++ on purpose: here a queue is a C handle, owned by the two calls below, whatever the
// reference counting of the Objective-C sources.

namespace corvid {

namespace {

// Its address is the key under which a queue knows its MacDispatchQueue.
constexpr char kOwnerKey = 0;

void runBlock(void* context) {
    const std::unique_ptr<std::function<void()>> block(
        static_cast<std::function<void()>*>(context));
    (*block)();
}

} // namespace

MacDispatchQueue::MacDispatchQueue(std::string label)
    : label_(std::move(label)), queue_(dispatch_queue_create(label_.c_str(), nullptr)) {
    dispatch_queue_set_specific(queue_, &kOwnerKey, this, nullptr);
}

MacDispatchQueue::~MacDispatchQueue() {
    dispatch_release(queue_);
}

void MacDispatchQueue::async(std::function<void()> block) {
    auto context = std::make_unique<std::function<void()>>(std::move(block));
    dispatch_async_f(queue_, context.release(), runBlock);
}

bool MacDispatchQueue::isCurrent() const {
    return dispatch_get_specific(&kOwnerKey) == this;
}

DispatchQueue& MacDispatch::serialQueue(std::string_view label) {
    const MutexLock lock(mutex_);
    const auto found = queues_.find(label);
    if (found != queues_.end()) {
        return *found->second;
    }
    auto queue = std::make_unique<MacDispatchQueue>(std::string(label));
    return *queues_.emplace(std::string(label), std::move(queue)).first->second;
}

} // namespace corvid
