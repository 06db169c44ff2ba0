#include "App/Reporting/LogWriterThread.h"

#include "App/Reporting/LogTrouble.h"
#include "Platform/Interfaces/Platform.h"

#include <algorithm>
#include <new>
#include <utility>

namespace corvid {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t kRingSize = CVDDFileLogger::kRingSize;

/// Above this the writer is called at once, so that callers seldom meet a full ring.
constexpr std::size_t kHurryAbove = kRingSize / 4;

/// How long the handler of a signal waits for a write that has begun.
constexpr std::chrono::milliseconds kSignalWait{1000};
constexpr std::chrono::milliseconds kSignalWaitStep{1};

} // namespace

LogWriterThread::LogWriterThread(std::shared_ptr<CVDDLogFileManagerDefault> manager,
                                 const LogWaits& waits)
    : waits_(waits), files_(std::move(manager)),
      formatter_(std::make_unique<CVLumberjackDefaultLogFormatter>()) {}

void LogWriterThread::prepare() {
    ring_.resize(kRingSize);
}

void LogWriterThread::setFormatter(std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter) {
    const MutexLock lock(mutex_);
    formatter_ = std::move(formatter);
}

void LogWriterThread::setStartFailure(std::string problem) {
    const MutexLock lock(mutex_);
    startFailure_ = std::move(problem);
}

void LogWriterThread::waitForOpening() {
    const auto deadline = steady_clock::now() + waits_.opening;
    MutexLock lock(mutex_);
    while (!isOpened_ && lock.waitUntil(toCallers_, deadline)) {
    }
    isStalled_ = !isOpened_;
}

void LogWriterThread::log(std::string_view message, std::int32_t flag) {
    thread_local const std::uint64_t thread = platform().processInfo.threadIdentifier();
    thread_local std::string line;
    line.clear();
    CVLumberjackDefaultLogFormatter::appendMessage(line, message);
    line += '\n';

    bool wake = false;
    {
        MutexLock lock(mutex_);
        // The time is taken where the place in the file is settled, so that the two agree.
        std::string_view prefix = formatter_->prefix(platform().clock.now(), thread, flag);
        if (used() + prefix.size() + line.size() > kRingSize) {
            if (!waitForRoom(lock, prefix.size() + line.size())) {
                countDropped();
                return;
            }
            // As long as the first one: all its parts have fixed widths.
            prefix = formatter_->prefix(platform().clock.now(), thread, flag);
        }
        const std::uint64_t head = head_.load();
        put(head, prefix);
        put(head + prefix.size(), line);
        head_.store(head + prefix.size() + line.size(), std::memory_order_release);

        const bool isMuch = used() > kHurryAbove;
        wake = writerSleeps_ || (isMuch && !hurry_);
        writerSleeps_ = false;
        hurry_ = hurry_ || isMuch;
    }
    if (wake) {
        toWriter_.notify_one();
    }
}

bool LogWriterThread::waitForRoom(MutexLock& lock, std::size_t bytes) {
    const auto deadline = steady_clock::now() + waits_.fullRing;
    while (used() + bytes > kRingSize) {
        if (isStalled_ || isHung(steady_clock::now())) {
            return false;
        }
        hurry_ = true;
        toWriter_.notify_one();
        if (!lock.waitUntil(toCallers_, deadline) && used() + bytes > kRingSize) {
            isStalled_ = true;
            toCallers_.notify_all();
        }
    }
    return true;
}

void LogWriterThread::countDropped() {
    if (droppedLines_++ == 0) {
        droppedAt_ = head_.load();
    }
}

LogWriterThread::Moment LogWriterThread::hungMoment(Moment now) const {
    const Moment::rep begun = callBegun_.load();
    return (begun != 0 ? Moment(Moment::duration(begun)) : now) + waits_.hung;
}

void LogWriterThread::put(std::uint64_t position, std::string_view bytes) {
    const std::size_t offset = position % kRingSize;
    const std::string_view front = bytes.substr(0, kRingSize - offset);
    const std::string_view back = bytes.substr(front.size());
    std::copy(front.begin(), front.end(), ring_.data() + offset);
    std::copy(back.begin(), back.end(), ring_.data());
}

void LogWriterThread::flush() {
    if (std::this_thread::get_id() == thread_.load()) {
        return;
    }
    const auto deadline = steady_clock::now() + waits_.flush;
    MutexLock lock(mutex_);
    const std::uint64_t end = head_.load();
    if (tail_.load() < end) {
        hurry_ = true;
        toWriter_.notify_one();
    }
    while (tail_.load() < end) {
        const auto now = steady_clock::now();
        if (now >= deadline || isHung(now)) {
            hasGivenUp_ = true;
            return;
        }
        lock.waitUntil(toCallers_, std::min(deadline, hungMoment(now)));
    }
}

bool LogWriterThread::stop() {
    MutexLock lock(mutex_);
    // After a flush that gave up, the time for the end is used up.
    const auto deadline =
        steady_clock::now() + (hasGivenUp_ ? std::chrono::milliseconds(0) : waits_.flush);
    isStopping_ = true;
    toWriter_.notify_one();
    while (!hasEnded_) {
        const auto now = steady_clock::now();
        if (now >= deadline || isHung(now)) {
            isAbandoned_ = true;
            return false;
        }
        lock.waitUntil(toCallers_, std::min(deadline, hungMoment(now)));
    }
    return true;
}

std::string LogWriterThread::problem() const {
    const MutexLock lock(mutex_);
    const std::string& folder = files_.manager().logsDirectory();
    if (!startFailure_.empty()) {
        return startFailure_;
    }
    const std::uint64_t lost = lostLines_ + droppedLines_;
    if (isStalled_ || droppedLines_ > 0 || isHung(steady_clock::now())) {
        return textForLoss(folder, LogFailure::diskDoesNotAnswer, lost);
    }
    return trouble_ ? textForLoss(folder, trouble_, lost) : std::string();
}

void LogWriterThread::run() {
    thread_.store(std::this_thread::get_id());
    perform({.isOpening = true});
    for (Step step = nextStep(); !step.isOver; step = nextStep()) {
        perform(step);
    }
    const MutexLock lock(mutex_);
    hasEnded_ = true;
    toCallers_.notify_all();
}

LogWriterThread::Step LogWriterThread::nextStep() {
    MutexLock lock(mutex_);
    Step step;
    step.isOver = isAbandoned_;
    if (tail_.load() >= batchEnd_ && !step.isOver) {
        step.isRetry = !waitForLines(lock);
        batchEnd_ = head_.load();
        step.isOver = isAbandoned_ || (isStopping_ && tail_.load() == batchEnd_ &&
                                       (droppedLines_ == 0 || trouble_));
    }
    step.end = batchEnd_;
    if (droppedLines_ > 0 && tail_.load() >= droppedAt_) {
        step.lost = std::exchange(droppedLines_, 0);
        lostLines_ += step.lost;
    } else if (droppedLines_ > 0) {
        step.end = std::min(step.end, droppedAt_);
    }
    return step;
}

/// False when there are none, and what went wrong is to be tried again.
bool LogWriterThread::waitForLines(MutexLock& lock) {
    const auto retry = steady_clock::now() + waits_.retry;
    while (used() == 0 && droppedLines_ == 0 && !isStopping_) {
        writerSleeps_ = true;
        if (!trouble_) {
            lock.wait(toWriter_);
        } else if (!lock.waitUntil(toWriter_, retry)) {
            break;
        }
    }
    const bool isAnything = used() > 0 || droppedLines_ > 0 || isStopping_;
    writerSleeps_ = false;
    const auto deadline = steady_clock::now() + CVDDFileLogger::kGatheringTime;
    while (isAnything && !hurry_ && !isStopping_ && lock.waitUntil(toWriter_, deadline)) {
    }
    hurry_ = false;
    return isAnything;
}

void LogWriterThread::perform(const Step& step) {
    std::uint64_t tail = tail_.load();
    beginCall();
    std::error_code failure;
    if (step.lost > 0) {
        files_.countLost(step.lost, LogFailure::diskDoesNotAnswer);
    }
    try {
        if (step.isOpening) {
            files_.open();
        } else if (tail < step.end) {
            tail += files_.writeSome(nextLines(tail, step.end));
        } else if (step.lost > 0 || step.isRetry) {
            files_.retry();
        }
    } catch (const std::bad_alloc&) {
        // Nothing of this step is written yet: it is done again later.
        failure = LogFailure::noMemory;
    }
    endCall(tail, failure);
}

void LogWriterThread::beginCall() {
    callBegun_.store(steady_clock::now().time_since_epoch().count());
    if (processIsDying_.load()) {
        // The signal's handler writes the rest.
        callBegun_.store(0);
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

void LogWriterThread::endCall(std::uint64_t newTail, const std::error_code& failure) {
    // Before the lock, which the thread that a fatal signal stopped may hold: its handler must
    // not write these lines again.
    tail_.store(newTail);
    callBegun_.store(0);
    {
        // A caller that has seen the old tail is waiting by now.
        MutexLock lock(mutex_);
        isOpened_ = true;
        isStalled_ = false;
        trouble_ = failure ? failure : files_.trouble();
        lostLines_ = files_.lostLines();
        const auto retry = steady_clock::now() + waits_.retry;
        while (failure && !isStopping_ && lock.waitUntil(toWriter_, retry)) {
        }
        // Without memory until the end: what is queued is lost.
        isAbandoned_ = isAbandoned_ || (failure && isStopping_);
    }
    toCallers_.notify_all();
}

std::string_view LogWriterThread::nextLines(std::uint64_t begin, std::uint64_t end) {
    const std::size_t offset = begin % kRingSize;
    const std::size_t untilEdge = std::min<std::uint64_t>(end - begin, kRingSize - offset);
    const std::string_view front(ring_.data() + offset, untilEdge);
    if (const std::size_t newline = front.rfind('\n'); newline != std::string_view::npos) {
        return front.substr(0, newline + 1);
    }
    const std::string_view rest(ring_.data(), end - begin - untilEdge);
    lineAcrossEdge_.assign(front).append(rest.substr(0, rest.find('\n') + 1));
    return lineAcrossEdge_;
}

void LogWriterThread::writeQueuedInSignalHandler() noexcept {
    processIsDying_.store(true);
    if (std::this_thread::get_id() != thread_.load()) {
        const auto deadline = steady_clock::now() + kSignalWait;
        while (callBegun_.load() != 0) {
            const auto now = steady_clock::now();
            if (now >= deadline || isHung(now)) {
                return; // what is queued would hang like what is being written
            }
            std::this_thread::sleep_for(kSignalWaitStep);
        }
    }
    std::uint64_t tail = tail_.load();
    for (std::uint64_t head = head_.load(); tail < head; head = head_.load()) {
        const std::size_t offset = tail % kRingSize;
        const std::size_t length = std::min<std::uint64_t>(head - tail, kRingSize - offset);
        files_.writeInSignalHandler({ring_.data() + offset, length});
        tail += length;
    }
}

} // namespace corvid
