#pragma once

#include <cstdint>
#include <string_view>

namespace corvid {

/// Somewhere that CVDDLog writes to. Any thread, unless a member says otherwise.
class CVDDLogger {
public:
    virtual ~CVDDLogger() = default;

    /// Takes one message of the level that `flag` stands for, one bit of LogFlags.
    virtual void logMessage(std::string_view message, std::int32_t flag) = 0;

    /// Returns when everything taken so far is with the operating system, or is known to be lost.
    virtual void flush() = 0;

    /// Writes what is queued, in a process that is about to die: called from a signal handler on
    /// any thread, so it takes no lock and allocates nothing. The logger is of no use afterwards.
    virtual void writeQueuedInSignalHandler() noexcept = 0;
};

} // namespace corvid
