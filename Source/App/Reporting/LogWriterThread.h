#pragma once

#include "App/Reporting/CVDDFileLogger.h"
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
#include <system_error>
#include <thread>
#include <vector>

namespace corvid {

/// The queue of a CVDDFileLogger and what its thread does. Every call to a file is made in run(),
/// outside the mutex, so that no caller ever waits for a disk longer than the bounds of
/// LogWaits. Any thread but for run().
class LogWriterThread {
public:
    LogWriterThread(std::shared_ptr<CVDDLogFileManagerDefault> manager, const LogWaits& waits);

    /// For the settings before the start.
    LogFileWriter& files() { return files_; }
    const LogFileWriter& files() const { return files_; }
    void setFormatter(std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter);

    /// Makes the queue ready, before the thread. Nothing is taken without it.
    void prepare();
    /// What the thread does: opens the first file, then writes until stop().
    void run();
    /// Returns when the first file has been opened, or could not be, or that takes too long.
    void waitForOpening();

    /// Says for good why there is no thread.
    void setStartFailure(std::string problem);

    void log(std::string_view message, std::int32_t flag);
    void flush();
    std::string problem() const;
    void writeQueuedInSignalHandler() noexcept;

    /// Has run() return when all is written. False when that takes too long: then run() returns
    /// after the call that hangs and does nothing more.
    bool stop();

private:
    using Moment = std::chrono::steady_clock::time_point;

    /// What the thread does next.
    struct Step {
        std::uint64_t end = 0;  ///< lines are to be written up to here
        std::uint64_t lost = 0; ///< lines that are missing before the first of them
        bool isOpening = false;
        bool isRetry = false;
        bool isOver = false;
    };
    Step nextStep();
    bool waitForLines(MutexLock& lock) CORVID_REQUIRES(mutex_);
    void perform(const Step& step);
    void beginCall();
    void endCall(std::uint64_t newTail, const std::error_code& failure);

    bool waitForRoom(MutexLock& lock, std::size_t bytes) CORVID_REQUIRES(mutex_);
    void countDropped() CORVID_REQUIRES(mutex_);
    std::size_t used() const { return head_.load() - tail_.load(); }
    /// Whether the disk has not answered a call for too long, and when it will be so at the
    /// earliest.
    bool isHung(Moment now) const { return hungMoment(now) <= now; }
    Moment hungMoment(Moment now) const;

    /// Whole lines, at least one, that lie one after another from `begin` on.
    std::string_view nextLines(std::uint64_t begin, std::uint64_t end);
    void put(std::uint64_t position, std::string_view bytes);

    const LogWaits waits_;
    LogFileWriter files_;        ///< the thread alone, once it runs
    std::string lineAcrossEdge_; ///< likewise
    std::uint64_t batchEnd_ = 0; ///< likewise: what is to be written without waiting for more

    mutable Mutex mutex_;
    std::condition_variable toWriter_;
    std::condition_variable toCallers_;
    std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter_ CORVID_GUARDED_BY(mutex_);
    std::string startFailure_ CORVID_GUARDED_BY(mutex_);
    bool writerSleeps_ CORVID_GUARDED_BY(mutex_) = false;
    bool hurry_ CORVID_GUARDED_BY(mutex_) = false;
    bool isOpened_ CORVID_GUARDED_BY(mutex_) = false;
    bool isStopping_ CORVID_GUARDED_BY(mutex_) = false;
    bool hasGivenUp_ CORVID_GUARDED_BY(mutex_) = false;
    bool isAbandoned_ CORVID_GUARDED_BY(mutex_) = false;
    bool hasEnded_ CORVID_GUARDED_BY(mutex_) = false;

    /// A caller has waited in vain since the writer last went on: others do not wait any more.
    bool isStalled_ CORVID_GUARDED_BY(mutex_) = false;
    // Lines that the writer has not been told of yet, and where in the stream they are missing (the
    // first of them, when there are several places).
    std::uint64_t droppedLines_ CORVID_GUARDED_BY(mutex_) = 0;
    std::uint64_t droppedAt_ CORVID_GUARDED_BY(mutex_) = 0;
    // What the files were like after the last step.
    std::error_code trouble_ CORVID_GUARDED_BY(mutex_);
    std::uint64_t lostLines_ CORVID_GUARDED_BY(mutex_) = 0;

    // Positions in the stream of all bytes ever queued; a byte lies at its position modulo the
    // size. Lines from tail_ to head_ are whole and wait to be written. Both change under the
    // mutex, but for the tail, and are atomic because a signal handler reads them without it.
    std::vector<char> ring_;
    std::atomic<std::uint64_t> head_{0};
    std::atomic<std::uint64_t> tail_{0};

    /// Since when the thread is in a call that may hang, by the steady clock; 0 while it is not.
    std::atomic<Moment::rep> callBegun_{0};
    std::atomic<std::thread::id> thread_{};
    std::atomic<bool> processIsDying_{false};
};

} // namespace corvid
