#pragma once

#include "App/Reporting/CVDDLogger.h"

#include <memory>
#include <string>

namespace corvid {

/// The loggers of the process, each registered for some levels. Any thread.
class CVDDLog {
public:
    /// Registers `logger` for the levels in `mask`, an OR of LogFlags bits. Shares it.
    static void addLogger(std::shared_ptr<CVDDLogger> logger, std::int32_t mask);

    /// Flushes and forgets every logger, whoever added it.
    static void removeAllLoggers();

    /// Hands `message` to each logger that is registered for `flag`, one bit of LogFlags, in the
    /// order in which they were registered.
    static void log(std::string_view message, std::int32_t flag);

    /// Flushes every logger.
    static void flushLog();

    /// What keeps the loggers from writing, see CVDDLogger; that of the first that has a problem.
    static std::string problem();

    /// For the handler of a fatal signal, see CVDDLogger. Takes no lock.
    static void writeQueuedInSignalHandler() noexcept;
};

} // namespace corvid
