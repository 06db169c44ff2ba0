#pragma once

#include "Core/Base/Fatal.h"

namespace corvid {

/// Sees to it that no queued log line is lost when the process ends by itself: flushes the loggers
/// of CVDDLog on fatal() and on exit(), and removes them when it is destroyed. One in `main`, after
/// the platform is installed and before anything logs. (What ends by a signal flushes through
/// CVDDLog::writeQueuedInSignalHandler().)
class LogSafety {
public:
    LogSafety();
    ~LogSafety();
    LogSafety(const LogSafety&) = delete;
    LogSafety& operator=(const LogSafety&) = delete;

private:
    const StopHook previousHook_;
};

} // namespace corvid
