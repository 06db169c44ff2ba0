#include "Tests/Support/CoreFoundation/DispatchDouble.h"

#include <algorithm>
#include <vector>

namespace {

struct LiveQueues {
    corvid::Mutex mutex;
    std::vector<dispatch_queue_t> queues CORVID_GUARDED_BY(mutex);
};

LiveQueues& live() {
    static LiveQueues shared;
    return shared;
}

dispatch_queue_t currentQueue() {
    const corvid::MutexLock lock(live().mutex);
    const auto found = std::find_if(live().queues.begin(), live().queues.end(),
                                    [](auto* queue) { return queue->queue.isCurrent(); });
    return found != live().queues.end() ? *found : nullptr;
}

} // namespace

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t /*serial*/) {
    auto* queue = new dispatch_queue_s(label);
    const corvid::MutexLock lock(live().mutex);
    live().queues.push_back(queue);
    return queue;
}

void dispatch_release(dispatch_queue_t queue) {
    {
        const corvid::MutexLock lock(live().mutex);
        std::erase(live().queues, queue);
    }
    delete queue;
}

void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    queue->queue.async([context, work] { work(context); });
}

void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* context,
                                 dispatch_function_t /*destructor*/) {
    const corvid::MutexLock lock(queue->mutex);
    queue->specific[key] = context;
}

void* dispatch_get_specific(const void* key) {
    const dispatch_queue_t queue = currentQueue();
    if (queue == nullptr) {
        return nullptr;
    }
    const corvid::MutexLock lock(queue->mutex);
    const auto found = queue->specific.find(key);
    return found != queue->specific.end() ? found->second : nullptr;
}
