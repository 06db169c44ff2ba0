#pragma once

#include "App/Reporting/CVDDLogFileManagerDefault.h"
#include "App/Reporting/CVDDLogger.h"
#include "App/Reporting/CVLumberjackDefaultLogFormatter.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace corvid {

class LogWriterThread;

/// How long anybody waits for the disk of the logs.
struct LogWaits {
    /// A caller, for room in the ring.
    std::chrono::milliseconds fullRing{2000};
    /// A disk that takes longer than this for one call counts as one that hangs: it is told by
    /// problem(), and nobody waits for it any more.
    std::chrono::milliseconds hung{2000};
    /// start(), for the first file.
    std::chrono::milliseconds opening{500};
    /// flush() and the destructor, for a disk that is merely slow.
    std::chrono::milliseconds flush{3000};
    /// While lines are lost, the writer tries again this often without being given any.
    std::chrono::milliseconds retry{2000};
};
inline constexpr LogWaits kLogWaits{};

/// Writes log lines to files, on a thread of its own: no other thread ever waits for a file.
///
/// A caller's thread makes the whole line, puts it into a ring buffer and goes on; the writer
/// takes what has gathered kGatheringTime after the first line of it. The order of the ring is the
/// order of the file, and the lines' times follow it. When the ring is full, a caller waits for
/// LogWaits::fullRing at most. If the writer has not gone on by then, this line and all others are
/// dropped at once until it does; in their place the file says how many they were. Any thread.
class CVDDFileLogger final : public CVDDLogger {
public:
    /// How long a line waits for others; what a killed process may lose.
    static constexpr std::chrono::milliseconds kGatheringTime{20};
    /// What the ring holds, in bytes.
    static constexpr std::size_t kRingSize = 512 * 1024;

    /// Writes to the files of `manager`, which it shares; to nowhere when that has no folder.
    /// Other `waits` are for tests.
    explicit CVDDFileLogger(std::shared_ptr<CVDDLogFileManagerDefault> manager,
                            const LogWaits& waits = kLogWaits);
    /// Writes what is queued first, within the bounds of flush(). If the disk hangs the writer's
    /// thread is left behind; it ends when the disk answers, and calls nothing of the platform but
    /// what that call still needs. See isThreadLeftBehind().
    ~CVDDFileLogger() override;
    CVDDFileLogger(const CVDDFileLogger&) = delete;
    CVDDFileLogger& operator=(const CVDDFileLogger&) = delete;

    // Before the logger is started; see LogFileWriter.
    void setLogFormatter(std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter);
    void setMaximumFileSize(std::uint64_t bytes);
    std::uint64_t maximumFileSize() const;
    void setRollingFrequency(std::chrono::seconds age);
    std::chrono::seconds rollingFrequency() const;
    CVDDLogFileManagerDefault& logFileManager() const;

    /// Starts to take lines; a line logged before is lost. The first file is there when it
    /// returns, unless opening it takes longer than LogWaits::opening.
    void start();

    void logMessage(std::string_view message, std::int32_t flag) override;
    void flush() override;
    std::string problem() const override;
    void writeQueuedInSignalHandler() noexcept override;

    /// Whether the thread of any logger of this process hangs on a disk although the logger is
    /// gone. Such a process may stay in the list of processes after its end, see ExitDeadline.
    static bool isThreadLeftBehind();

private:
    // The writer's thread shares it, since that may outlive the logger.
    const std::shared_ptr<LogWriterThread> writer_;
    std::thread thread_;
};

} // namespace corvid
