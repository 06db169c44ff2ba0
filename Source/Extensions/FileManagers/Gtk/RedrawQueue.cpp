#include "Extensions/FileManagers/Gtk/RedrawQueue.h"

#include <utility>

namespace corvid::gtk {

namespace {

template <class T>
T takeFirst(std::deque<T>& queue) {
    T first = std::move(queue.front());
    queue.pop_front();
    return first;
}

} // namespace

void RedrawQueue::add(std::string path, Reason reason) {
    if (!waiting_.insert(path).second) {
        return;
    }
    if (reason == Reason::changed) {
        changed_.push_back(std::move(path));
    } else {
        appeared_.push_back({std::move(path), reason});
    }
}

RedrawQueue::Item RedrawQueue::take(Clock::time_point now) {
    Item item{{}, Reason::changed};
    if (!appeared_.empty()) {
        item = takeFirst(appeared_);
    } else if (!changed_.empty()) {
        if (now - periodStart_ >= kPeriod) {
            periodStart_ = now;
            takenInPeriod_ = 0;
        }
        if (takenInPeriod_ == kChangesAtOnce) {
            return item;
        }
        ++takenInPeriod_;
        item.path = takeFirst(changed_);
    }
    waiting_.erase(item.path);
    return item;
}

std::optional<RedrawQueue::Clock::time_point> RedrawQueue::due() const {
    if (appeared_.empty() && changed_.empty()) {
        return std::nullopt;
    }
    const bool mustWait = appeared_.empty() && takenInPeriod_ == kChangesAtOnce;
    return periodStart_ + (mustWait ? kPeriod : std::chrono::milliseconds(0));
}

} // namespace corvid::gtk
