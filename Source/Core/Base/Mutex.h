#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Clang's thread-safety annotations; they mean nothing to other compilers.
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#if defined(__clang__)
#define CORVID_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define CORVID_THREAD_ANNOTATION(x)
#endif

#define CORVID_CAPABILITY(x) CORVID_THREAD_ANNOTATION(capability(x))
#define CORVID_SCOPED_CAPABILITY CORVID_THREAD_ANNOTATION(scoped_lockable)
#define CORVID_GUARDED_BY(x) CORVID_THREAD_ANNOTATION(guarded_by(x))
#define CORVID_PT_GUARDED_BY(x) CORVID_THREAD_ANNOTATION(pt_guarded_by(x))
#define CORVID_REQUIRES(...) CORVID_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define CORVID_EXCLUDES(...) CORVID_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define CORVID_ACQUIRE(...) CORVID_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define CORVID_RELEASE(...) CORVID_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define CORVID_TRY_ACQUIRE(...) CORVID_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define CORVID_NO_THREAD_SAFETY_ANALYSIS CORVID_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace corvid {

/// `std::mutex` with the annotations that let clang check which data it guards.
class CORVID_CAPABILITY("mutex") Mutex {
public:
    void lock() CORVID_ACQUIRE() { mutex_.lock(); }
    void unlock() CORVID_RELEASE() { mutex_.unlock(); }
    bool try_lock() CORVID_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    friend class MutexLock;
    std::mutex mutex_;
};

/// Holds a Mutex for a scope, and waits on a condition that it guards.
class CORVID_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) CORVID_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
    ~MutexLock() CORVID_RELEASE() = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    /// For a stretch within the scope that must not hold the mutex.
    void unlock() CORVID_RELEASE() { lock_.unlock(); }
    void lock() CORVID_ACQUIRE() { lock_.lock(); }

    /// Gives the mutex up while it waits; the caller tests its condition in a loop.
    void wait(std::condition_variable& condition) { condition.wait(lock_); }

    /// As wait(), until `deadline`; false when the deadline has passed.
    template <class Clock, class Duration>
    bool waitUntil(std::condition_variable& condition,
                   const std::chrono::time_point<Clock, Duration>& deadline) {
        return condition.wait_until(lock_, deadline) == std::cv_status::no_timeout;
    }

private:
    std::unique_lock<std::mutex> lock_;
};

} // namespace corvid
