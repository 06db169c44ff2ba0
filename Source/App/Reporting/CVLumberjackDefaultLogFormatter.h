#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvid {

/// Makes the lines of a log file:
///
///     2026-11-16 03:02:05.678 +01:00 4242:4250 error   <UI> MessagePort: ...
///
/// local time with milliseconds and the offset from UTC, process and thread, level, message. The
/// calendar is the Gregorian one and the digits are ASCII, whatever the locale.
class CVLumberjackDefaultLogFormatter {
public:
    /// No message is longer than this, in bytes; the rest is cut off, and its length is given.
    static constexpr std::size_t kMaximumMessageSize = 64 * 1024;

    CVLumberjackDefaultLogFormatter();

    /// What stands before the message, the blank included; `flag` is one bit of LogFlags. Valid
    /// until the next call. One thread at a time.
    std::string_view prefix(std::chrono::system_clock::time_point moment, std::uint64_t thread,
                            std::int32_t flag);

    /// Appends `message` on one line, escaped as by appendPrintableText(), without the newline that
    /// ends it. Any thread.
    static void appendMessage(std::string& out, std::string_view message);

private:
    void renewSecond(std::chrono::sys_seconds second);

    const std::string process_;
    std::chrono::sys_seconds second_ = std::chrono::sys_seconds::min();
    std::string date_;   ///< to the second, the point included
    std::string offset_; ///< with the blanks around it
    std::string prefix_;
};

} // namespace corvid
