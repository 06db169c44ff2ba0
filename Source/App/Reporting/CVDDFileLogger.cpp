#include "App/Reporting/CVDDFileLogger.h"

#include "Platform/Interfaces/Platform.h"

#include <algorithm>
#include <csignal>
#include <functional>
#include <string>
#include <utility>

namespace corvid {

namespace {

/// Above this the writer is called at once, so that callers seldom meet a full ring.
constexpr std::size_t kHurryAbove = CVDDFileLogger::kRingSize / 4;

// A message escapes to at most four bytes a byte.
static_assert(CVLumberjackDefaultLogFormatter::kMaximumMessageSize * 4 + 1024 <=
              CVDDFileLogger::kRingSize);

/// How long the handler of a signal waits for a write that has begun.
constexpr int kSignalWaitSteps = 1000;
constexpr std::chrono::milliseconds kSignalWaitStep{1};

/// A thread on which no signal arrives but those of its own faults: the handler of any other would
/// find the write that it must wait for underneath it.
std::thread threadWithoutSignals(std::function<void()> body) {
    sigset_t asynchronous;
    sigset_t before;
    sigfillset(&asynchronous);
    for (const int fault : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
        sigdelset(&asynchronous, fault);
    }
    pthread_sigmask(SIG_SETMASK, &asynchronous, &before);
    std::thread thread(std::move(body));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace

CVDDFileLogger::CVDDFileLogger(std::shared_ptr<CVDDLogFileManagerDefault> manager)
    : writer_(std::move(manager)), formatter_(std::make_unique<CVLumberjackDefaultLogFormatter>()) {
}

CVDDFileLogger::~CVDDFileLogger() {
    if (!writerThread_.joinable()) {
        return;
    }
    {
        const MutexLock lock(mutex_);
        stopping_ = true;
    }
    toWriter_.notify_one();
    writerThread_.join();
}

void CVDDFileLogger::setLogFormatter(std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter) {
    const MutexLock lock(mutex_);
    formatter_ = std::move(formatter);
}

void CVDDFileLogger::start() {
    if (writer_.manager().logsDirectory().empty()) {
        return;
    }
    writer_.open();
    ring_.resize(kRingSize);
    writerThread_ = threadWithoutSignals([this] { runWriter(); });
}

void CVDDFileLogger::logMessage(std::string_view message, std::int32_t flag) {
    if (!writerThread_.joinable()) {
        return;
    }
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
        while (head_.load() - tail_.load() + prefix.size() + line.size() > kRingSize) {
            hurry_ = true;
            toWriter_.notify_one();
            lock.wait(toCallers_);
            prefix = formatter_->prefix(platform().clock.now(), thread, flag);
        }
        const std::uint64_t head = head_.load();
        put(head, prefix);
        put(head + prefix.size(), line);
        head_.store(head + prefix.size() + line.size(), std::memory_order_release);

        const bool isMuch = head_.load() - tail_.load() > kHurryAbove;
        wake = writerSleeps_ || (isMuch && !hurry_);
        writerSleeps_ = false;
        hurry_ = hurry_ || isMuch;
    }
    if (wake) {
        toWriter_.notify_one();
    }
}

void CVDDFileLogger::put(std::uint64_t position, std::string_view bytes) {
    const std::size_t offset = position % kRingSize;
    const std::string_view front = bytes.substr(0, kRingSize - offset);
    const std::string_view back = bytes.substr(front.size());
    std::copy(front.begin(), front.end(), ring_.data() + offset);
    std::copy(back.begin(), back.end(), ring_.data());
}

void CVDDFileLogger::flush() {
    if (!writerThread_.joinable() || std::this_thread::get_id() == writerThread_.get_id()) {
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + kFlushTimeout;
    MutexLock lock(mutex_);
    const std::uint64_t end = head_.load();
    if (tail_.load() < end) {
        hurry_ = true;
        toWriter_.notify_one();
    }
    while (tail_.load() < end && lock.waitUntil(toCallers_, deadline)) {
    }
}

void CVDDFileLogger::runWriter() {
    for (;;) {
        std::uint64_t end = 0;
        {
            MutexLock lock(mutex_);
            while (head_.load() == tail_.load() && !stopping_) {
                writerSleeps_ = true;
                lock.wait(toWriter_);
            }
            writerSleeps_ = false;
            const auto deadline = std::chrono::steady_clock::now() + kGatheringTime;
            while (!hurry_ && !stopping_ && lock.waitUntil(toWriter_, deadline)) {
            }
            hurry_ = false;
            end = head_.load();
            if (end == tail_.load()) {
                return;
            }
        }
        writeUpTo(end);
    }
}

void CVDDFileLogger::writeUpTo(std::uint64_t end) {
    for (std::uint64_t tail = tail_.load(); tail < end;) {
        writerIsWriting_.store(true);
        if (processIsDying_.load()) {
            // The signal's handler writes the rest.
            std::this_thread::sleep_for(std::chrono::hours(1));
        }
        tail += writer_.writeSome(nextLines(tail, end));
        // Before the lock, which the thread that a fatal signal stopped may hold: its handler must
        // not write these lines again.
        tail_.store(tail);
        writerIsWriting_.store(false);
        {
            // A caller that has seen the old tail is waiting by now.
            const MutexLock lock(mutex_);
        }
        toCallers_.notify_all();
    }
}

std::string_view CVDDFileLogger::nextLines(std::uint64_t begin, std::uint64_t end) {
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

void CVDDFileLogger::writeQueuedInSignalHandler() noexcept {
    if (ring_.empty()) {
        return;
    }
    processIsDying_.store(true);
    if (std::this_thread::get_id() != writerThread_.get_id()) {
        for (int i = 0; i < kSignalWaitSteps && writerIsWriting_.load(); ++i) {
            std::this_thread::sleep_for(kSignalWaitStep);
        }
    }
    std::uint64_t tail = tail_.load();
    for (std::uint64_t head = head_.load(); tail < head; head = head_.load()) {
        const std::size_t offset = tail % kRingSize;
        const std::size_t length = std::min<std::uint64_t>(head - tail, kRingSize - offset);
        writer_.writeInSignalHandler({ring_.data() + offset, length});
        tail += length;
    }
}

} // namespace corvid
