#include "App/Reporting/LogSafety.h"

#include "App/Reporting/CVDDLog.h"

#include <atomic>
#include <cstdlib>

namespace corvid {

namespace {

// exit() may also come after `main` has returned and taken down what the loggers lean on.
std::atomic<bool> isInstalled{false};

void flushAtExit() {
    if (isInstalled.load()) {
        CVDDLog::flushLog();
    }
}

} // namespace

LogSafety::LogSafety() : previousHook_(setStopHook([]() noexcept { CVDDLog::flushLog(); })) {
    isInstalled.store(true);
    [[maybe_unused]] static const int registered = std::atexit(flushAtExit);
}

LogSafety::~LogSafety() {
    isInstalled.store(false);
    setStopHook(previousHook_);
    CVDDLog::removeAllLoggers();
}

} // namespace corvid
