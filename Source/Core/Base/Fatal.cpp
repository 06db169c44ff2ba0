#include "Core/Base/Fatal.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace corvid {

namespace {
std::atomic<StopHook> stopHook{nullptr};
std::atomic<StopHook> alarmHook{nullptr};
} // namespace

void fatal(std::string_view text) {
    if (const StopHook hook = alarmHook.load()) {
        hook();
    }
    std::fprintf(stderr, "fatal: %.*s\n", static_cast<int>(text.size()), text.data());
    std::fflush(stderr);
    // Taken out before the call, so that a fatal state inside the hook cannot come round again.
    if (const StopHook hook = stopHook.exchange(nullptr)) {
        hook();
    }
    std::abort();
}

StopHook setStopHook(StopHook hook) noexcept {
    return stopHook.exchange(hook);
}

StopHook setAlarmHook(StopHook hook) noexcept {
    return alarmHook.exchange(hook);
}

} // namespace corvid
