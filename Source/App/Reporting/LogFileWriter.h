#pragma once

#include "App/Reporting/CVDDLogFileManagerDefault.h"
#include "App/Reporting/CVLumberjackDefaultLogFormatter.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace corvid {

/// Puts lines into the files of a log file manager and begins a new file when the current one is
/// full, too old, removed or replaced. Lines that cannot be written are counted, and a line of its
/// own says how many they were as soon as writing works again.
///
/// One thread at a time, but for writeInSignalHandler().
class LogFileWriter {
public:
    /// Writes to the files of `manager`, which it shares.
    explicit LogFileWriter(std::shared_ptr<CVDDLogFileManagerDefault> manager);
    ~LogFileWriter();

    CVDDLogFileManagerDefault& manager() const { return *manager_; }

    /// A file gets no line that would make it larger than `bytes`; 0 for no limit. A line that is
    /// larger than that by itself gets a file to itself.
    void setMaximumFileSize(std::uint64_t bytes) { maximumFileSize_ = bytes; }
    std::uint64_t maximumFileSize() const { return maximumFileSize_; }
    /// A file gets no line once it is `age` old; 0 for no limit.
    void setRollingFrequency(std::chrono::seconds age) { rollingFrequency_ = age; }
    std::chrono::seconds rollingFrequency() const { return rollingFrequency_; }

    /// Opens the first file, so that even a crash right after the start has somewhere to write.
    void open();

    /// Takes lines from the front of `lines`, which holds at least one and only whole ones. Gives
    /// the bytes taken, at least one line's; taken means written or counted as lost.
    std::size_t writeSome(std::string_view lines);

    /// Counts lines that were lost before they came here, for `reason`.
    void countLost(std::uint64_t lines, const std::error_code& reason);

    /// Tries again, without a line at hand, what went wrong the last time; what is lost is then
    /// said in the file.
    void retry();

    /// Why the last lines were lost, or why there is no file; none when all is well. And how many
    /// lines are lost that no file tells of yet.
    std::error_code trouble() const;
    std::uint64_t lostLines() const { return lostLines_; }

    /// Appends to the current file, if there is one, whatever its size.
    void writeInSignalHandler(std::string_view lines) noexcept;

private:
    bool hasRoomFor(std::size_t bytes) const;
    bool isTooOld() const;
    bool prepareFileFor(std::size_t firstLine);
    bool beginFile();
    /// Gives the bytes that are in the file now: those of whole lines.
    std::size_t append(std::string_view lines);
    std::string noticeOfLoss();

    const std::shared_ptr<CVDDLogFileManagerDefault> manager_;
    std::uint64_t maximumFileSize_ = 0;
    std::chrono::seconds rollingFrequency_{0};
    CVLumberjackDefaultLogFormatter formatter_;

    CVDDLogFileManagerDefault::LogFile current_;
    std::atomic<AppendFile*> fileForSignals_{nullptr};
    std::uint64_t size_ = 0;
    std::chrono::system_clock::time_point begun_;
    std::chrono::steady_clock::time_point begunMonotonic_;

    std::uint64_t lostLines_ = 0;
    std::error_code lossReason_;
};

} // namespace corvid
