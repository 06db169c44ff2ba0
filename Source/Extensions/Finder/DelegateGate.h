#pragma once

#include "Core/Base/Mutex.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace corvid {

class CVMABadgeDelegate;

/// A weak reference to a delegate, whose load is a visit. A visit does not share the delegate: it
/// holds up its end. So the end comes on the thread that lets the delegate go, and not, as with
/// std::weak_ptr, on the thread that happens to have loaded it at that moment.
///
/// Every delegate has one gate, which stays as long as somebody refers to it. Any thread.
class DelegateGate {
public:
    /// One call of the delegate, or a few; on one thread.
    class Visit {
    public:
        /// Enters `gate`, which may be null.
        explicit Visit(std::shared_ptr<DelegateGate> gate);
        ~Visit();
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        /// Stays as long as this visit; null when the gate was closed.
        CVMABadgeDelegate* delegate() const { return delegate_; }

    private:
        const std::shared_ptr<DelegateGate> gate_;
        CVMABadgeDelegate* const delegate_;
    };

    explicit DelegateGate(CVMABadgeDelegate& delegate);

    /// Lets nobody in from now on, and returns when no other thread is inside. Visits of this
    /// thread itself are not waited for. It takes as long as the longest visit, without a limit,
    /// so the caller holds no lock that the delegate's setBadge() takes.
    void close();

    /// Runs `last` when this thread is not inside: now, or when its visit ends. Once, after
    /// close().
    void afterVisit(std::function<void()> last);

private:
    CVMABadgeDelegate* enter();
    void leave();

    CVMABadgeDelegate& delegate_;
    Mutex mutex_;
    std::condition_variable left_;
    bool isClosed_ CORVID_GUARDED_BY(mutex_) = false;
    std::vector<std::thread::id> inside_ CORVID_GUARDED_BY(mutex_); ///< once for each visit
    std::function<void()> last_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
