#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvid {

/// Somewhere that CVDDLog writes to. Any thread, unless a member says otherwise.
class CVDDLogger {
public:
    virtual ~CVDDLogger() = default;

    /// Takes one message of the level that `flag` stands for, one bit of LogFlags. Waits for a
    /// disk for a short, bounded time at most; then the message is lost, and counted.
    virtual void logMessage(std::string_view message, std::int32_t flag) = 0;

    /// Returns when everything taken so far is with the operating system, or is known to be lost,
    /// or when the disk takes too long for a process that ends.
    virtual void flush() = 0;

    /// What keeps messages from being written now, as sentences for people with the remedy; empty
    /// when nothing does. Waits for no disk.
    virtual std::string problem() const = 0;

    /// Writes what is queued, in a process that is about to die: called from a signal handler on
    /// any thread, so it takes no lock and allocates nothing. The logger is of no use afterwards.
    virtual void writeQueuedInSignalHandler() noexcept = 0;
};

} // namespace corvid
