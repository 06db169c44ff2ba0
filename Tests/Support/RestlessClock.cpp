// A program that links this reads its clocks through it: its definitions come before those of the
// C library.

#include "Tests/Support/RestlessClock.h"

#include <atomic>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr long kHour = 3600;
std::atomic<bool> isRestless{false};
std::atomic<long> secondsBack{0};

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (clock == CLOCK_REALTIME && isRestless) {
        time->tv_sec -= secondsBack += kHour;
    }
    return result;
}

namespace corvid {

RestlessClock::RestlessClock() {
    isRestless = true;
}

RestlessClock::~RestlessClock() {
    isRestless = false;
}

} // namespace corvid
