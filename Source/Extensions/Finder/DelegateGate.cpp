#include "Extensions/Finder/DelegateGate.h"

#include <algorithm>
#include <utility>

namespace corvid {

DelegateGate::Visit::Visit(std::shared_ptr<DelegateGate> gate)
    : gate_(std::move(gate)), delegate_(gate_ != nullptr ? gate_->enter() : nullptr) {}

DelegateGate::Visit::~Visit() {
    if (delegate_ != nullptr) {
        gate_->leave();
    }
}

DelegateGate::DelegateGate(CVMABadgeDelegate& delegate) : delegate_(delegate) {}

CVMABadgeDelegate* DelegateGate::enter() {
    const MutexLock lock(mutex_);
    if (isClosed_) {
        return nullptr;
    }
    inside_.push_back(std::this_thread::get_id());
    return &delegate_;
}

void DelegateGate::leave() {
    std::function<void()> last;
    {
        const MutexLock lock(mutex_);
        inside_.erase(std::find(inside_.begin(), inside_.end(), std::this_thread::get_id()));
        left_.notify_all();
        if (inside_.empty()) {
            last = std::exchange(last_, nullptr);
        }
    }
    if (last) {
        last();
    }
}

void DelegateGate::close() {
    MutexLock lock(mutex_);
    isClosed_ = true;
    const auto isOther = [self = std::this_thread::get_id()](std::thread::id visitor) {
        return visitor != self;
    };
    while (std::any_of(inside_.begin(), inside_.end(), isOther)) {
        lock.wait(left_);
    }
}

void DelegateGate::afterVisit(std::function<void()> last) {
    {
        const MutexLock lock(mutex_);
        // Closed, so that only this thread can be inside.
        if (!inside_.empty()) {
            last_ = std::move(last);
            return;
        }
    }
    last();
}

} // namespace corvid
