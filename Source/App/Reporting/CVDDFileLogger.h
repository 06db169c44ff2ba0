#pragma once

#include "App/Reporting/CVDDLogFileManagerDefault.h"
#include "App/Reporting/CVDDLogger.h"
#include "App/Reporting/CVLumberjackDefaultLogFormatter.h"
#include "App/Reporting/LogFileWriter.h"
#include "Core/Base/Mutex.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvid {

/// Writes log lines to files, on a thread of its own.
///
/// A caller's thread makes the whole line, puts it into a ring buffer and goes on; the writer
/// takes what has gathered kGatheringTime after the first line of it. The order of the ring is the
/// order of the file, and the lines' times follow it. When the ring is full, callers wait for the
/// writer: no line is dropped. Any thread.
class CVDDFileLogger final : public CVDDLogger {
public:
    /// How long a line waits for others; what a killed process may lose.
    static constexpr std::chrono::milliseconds kGatheringTime{20};
    /// What the ring holds, in bytes.
    static constexpr std::size_t kRingSize = 512 * 1024;
    /// After this, flush() gives up on a disk that hangs.
    static constexpr std::chrono::seconds kFlushTimeout{5};

    /// Writes to the files of `manager`, which it shares; to nowhere when that has no folder.
    explicit CVDDFileLogger(std::shared_ptr<CVDDLogFileManagerDefault> manager);
    /// Writes what is queued first.
    ~CVDDFileLogger() override;
    CVDDFileLogger(const CVDDFileLogger&) = delete;
    CVDDFileLogger& operator=(const CVDDFileLogger&) = delete;

    // Before the logger is registered; see LogFileWriter.
    void setLogFormatter(std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter);
    void setMaximumFileSize(std::uint64_t bytes) { writer_.setMaximumFileSize(bytes); }
    std::uint64_t maximumFileSize() const { return writer_.maximumFileSize(); }
    void setRollingFrequency(std::chrono::seconds age) { writer_.setRollingFrequency(age); }
    std::chrono::seconds rollingFrequency() const { return writer_.rollingFrequency(); }
    CVDDLogFileManagerDefault& logFileManager() const { return writer_.manager(); }

    /// Opens the first file and starts to take lines; a line logged before is lost.
    void start();

    void logMessage(std::string_view message, std::int32_t flag) override;
    void flush() override;
    void writeQueuedInSignalHandler() noexcept override;

private:
    void runWriter();
    void writeUpTo(std::uint64_t end);
    /// Whole lines, at least one, that lie one after another from `begin` on.
    std::string_view nextLines(std::uint64_t begin, std::uint64_t end);
    void put(std::uint64_t position, std::string_view bytes);

    LogFileWriter writer_;       ///< the writer's thread alone, once it runs
    std::string lineAcrossEdge_; ///< likewise

    Mutex mutex_;
    std::condition_variable toWriter_;
    std::condition_variable toCallers_;
    std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter_ CORVID_GUARDED_BY(mutex_);
    bool writerSleeps_ CORVID_GUARDED_BY(mutex_) = false;
    bool hurry_ CORVID_GUARDED_BY(mutex_) = false;
    bool stopping_ CORVID_GUARDED_BY(mutex_) = false;

    // Positions in the stream of all bytes ever queued; a byte lies at its position modulo the
    // size. Lines from tail_ to head_ are whole and wait to be written. Both change under the
    // mutex, and are atomic because a signal handler reads them without it.
    std::vector<char> ring_;
    std::atomic<std::uint64_t> head_{0};
    std::atomic<std::uint64_t> tail_{0};

    std::atomic<bool> writerIsWriting_{false};
    std::atomic<bool> processIsDying_{false};
    std::thread writerThread_;
};

} // namespace corvid
