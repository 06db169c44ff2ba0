#include "Extensions/FileManagers/Gtk/AbsentItems.h"

#include <utility>

namespace corvid::gtk {

void AbsentItems::add(std::string path, Clock::time_point now) {
    if (paths_.size() < kMaxItems) {
        paths_.push_back(std::move(path));
        lastNews_ = now;
    }
}

void AbsentItems::lookFor(const std::function<bool(const std::string& path)>& isThere,
                          Clock::time_point now, Clock::duration slice) {
    const auto begin = Clock::now();
    bool isInTime = true;
    for (std::size_t left = paths_.size(); left > 0 && isInTime; --left) {
        std::string path = std::move(paths_.front());
        paths_.pop_front();
        if (isThere(path)) {
            lastNews_ = now;
        } else {
            paths_.push_back(std::move(path));
        }
        isInTime = Clock::now() - begin < slice;
    }
    if (now - lastNews_ > kPatience) {
        paths_.clear();
    }
}

} // namespace corvid::gtk
