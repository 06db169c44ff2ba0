#include "Extensions/FileManagers/Gtk/RedrawQueue.h"

#include <utility>

namespace corvid::gtk {

namespace {

std::string takeFirst(std::deque<std::string>& paths) {
    std::string path = std::move(paths.front());
    paths.pop_front();
    return path;
}

} // namespace

void RedrawQueue::add(std::string path, Reason reason) {
    if (waiting_.insert(path).second) {
        (reason == Reason::appeared ? appeared_ : changed_).push_back(std::move(path));
    }
}

std::string RedrawQueue::take(Clock::time_point now) {
    std::string path;
    if (!appeared_.empty()) {
        path = takeFirst(appeared_);
    } else if (!changed_.empty()) {
        if (now - periodStart_ >= kPeriod) {
            periodStart_ = now;
            takenInPeriod_ = 0;
        }
        if (takenInPeriod_ == kChangesAtOnce) {
            return {};
        }
        ++takenInPeriod_;
        path = takeFirst(changed_);
    }
    waiting_.erase(path);
    return path;
}

std::optional<RedrawQueue::Clock::time_point> RedrawQueue::due() const {
    if (appeared_.empty() && changed_.empty()) {
        return std::nullopt;
    }
    const bool mustWait = appeared_.empty() && takenInPeriod_ == kChangesAtOnce;
    return periodStart_ + (mustWait ? kPeriod : std::chrono::milliseconds(0));
}

} // namespace corvid::gtk
