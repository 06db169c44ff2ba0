#include "HostKit/PushLane.h"

#include <iterator>
#include <utility>

namespace corvid::hostkit {

void PushLane::add(PushRef push) {
    if (const auto found = byPath_.find(push->path); found != byPath_.end()) {
        // The key is the old push's text, which goes.
        const auto place = found->second;
        auto node = byPath_.extract(found);
        node.key() = push->path;
        *place = std::move(push);
        byPath_.insert(std::move(node));
        return;
    }
    waiting_.push_back(std::move(push));
    try {
        byPath_.emplace(waiting_.back()->path, std::prev(waiting_.end()));
    } catch (...) {
        waiting_.pop_back(); // No memory: as if it had not come.
        throw;
    }
}

PushLane::PushRef PushLane::takeFirst() {
    if (waiting_.empty()) {
        return nullptr;
    }
    PushRef first = std::move(waiting_.front());
    byPath_.erase(first->path);
    waiting_.pop_front();
    return first;
}

void PushLane::putBack(PushRef push) {
    if (!byPath_.contains(push->path)) {
        waiting_.push_front(std::move(push));
        try {
            byPath_.emplace(waiting_.front()->path, waiting_.begin());
        } catch (...) {
            waiting_.pop_front();
            throw;
        }
    }
}

void PushLane::clear() {
    byPath_.clear();
    waiting_.clear();
}

} // namespace corvid::hostkit
