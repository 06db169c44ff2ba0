#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
#include <sys/time.h>

namespace corvid {

/// A moment on the monotonic clock that is fixed when it is made; what waits for it, however
/// often, spends what is left.
class Deadline {
public:
    /// `timeout` from now; a negative one has passed already, one above a year is a year.
    explicit Deadline(std::chrono::milliseconds timeout)
        : moment_(std::chrono::steady_clock::now() +
                  std::clamp<std::chrono::milliseconds>(timeout, std::chrono::milliseconds(0),
                                                        std::chrono::hours(24 * 365))) {}

    /// Never negative.
    std::chrono::nanoseconds left() const {
        return std::max<std::chrono::nanoseconds>(moment_ - std::chrono::steady_clock::now(),
                                                  std::chrono::nanoseconds(0));
    }
    bool passed() const { return left() == std::chrono::nanoseconds(0); }

    /// What is left, as ppoll() takes it.
    std::timespec timespecLeft() const {
        const auto remaining = left();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(remaining);
        return {static_cast<std::time_t>(seconds.count()),
                static_cast<long>((remaining - seconds).count())};
    }
    /// What is left, as sockets take it: rounded up, and never zero, which would be for ever.
    timeval timevalLeft() const { return timevalOf(left()); }
    static timeval timevalOf(std::chrono::nanoseconds left) {
        constexpr std::chrono::microseconds kLeast{1};
        const auto remaining = std::max(kLeast, std::chrono::ceil<std::chrono::microseconds>(left));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(remaining);
        return {static_cast<std::time_t>(seconds.count()),
                static_cast<suseconds_t>((remaining - seconds).count())};
    }

private:
    std::chrono::steady_clock::time_point moment_;
};

} // namespace corvid
