#include "Tools/corvid-host/LineWriter.h"

#include "Core/Base/Mutex.h"

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace corvid {

namespace {

/// What a line costs besides its bytes, so that empty lines are bounded too.
constexpr std::size_t kCostOfLine = 64;

} // namespace

struct LineWriter::Queue {
    Queue(int output, DroppedLine text) : descriptor(output), droppedLine(std::move(text)) {}

    const int descriptor;
    const DroppedLine droppedLine;

    Mutex mutex;
    std::condition_variable changed;
    std::deque<std::string> lines CORVID_GUARDED_BY(mutex);
    std::size_t bytes CORVID_GUARDED_BY(mutex) = 0; ///< of `lines` and the one being written
    std::size_t cost CORVID_GUARDED_BY(mutex) = 0;  ///< of the one being written
    std::size_t dropped CORVID_GUARDED_BY(mutex) = 0;
    bool isEnding CORVID_GUARDED_BY(mutex) = false;
    bool isFinished CORVID_GUARDED_BY(mutex) = false;

    /// Waits for the next line; nothing at the end.
    std::optional<std::string> take() {
        MutexLock lock(mutex);
        bytes -= std::exchange(cost, 0);
        while (lines.empty() && dropped == 0 && !isEnding) {
            lock.wait(changed);
        }
        if (!lines.empty()) {
            std::string line = std::move(lines.front());
            lines.pop_front();
            cost = line.size() + kCostOfLine;
            return line;
        }
        if (dropped > 0) {
            const std::size_t count = std::exchange(dropped, 0);
            return droppedLine(count) + "\n";
        }
        return std::nullopt;
    }

    void write(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t count = ::write(descriptor, text.data(), text.size());
            if (count >= 0) {
                text.remove_prefix(static_cast<std::size_t>(count));
            } else if (errno == EAGAIN) {
                // Somebody who shares the terminal has made it so.
                pollfd output{descriptor, POLLOUT, 0};
                poll(&output, 1, -1);
            } else if (errno != EINTR) {
                return; // the reader is gone, or the disk is full: the line is lost
            }
        }
    }

    void run() {
        while (const std::optional<std::string> line = take()) {
            write(*line);
        }
        const MutexLock lock(mutex);
        isFinished = true;
        changed.notify_all();
    }
};

LineWriter::LineWriter(int descriptor, DroppedLine droppedLine)
    : queue_(std::make_shared<Queue>(descriptor, std::move(droppedLine))) {
    // The thread takes no signals: they are for who waits for them. SIGPIPE becomes an error.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        thread_ = std::thread([queue = queue_] { queue->run(); });
    } catch (const std::system_error&) {
        // add() does without it.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

LineWriter::~LineWriter() {
    if (!thread_.joinable()) {
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + kLongestEnd;
    bool isFinished = false;
    {
        MutexLock lock(queue_->mutex);
        queue_->isEnding = true;
        queue_->changed.notify_all();
        while (!queue_->isFinished && lock.waitUntil(queue_->changed, deadline)) {
        }
        isFinished = queue_->isFinished;
    }
    isFinished ? thread_.join() : thread_.detach();
}

void LineWriter::add(std::string line) {
    line += '\n';
    if (!thread_.joinable()) {
        queue_->write(line);
        return;
    }
    const MutexLock lock(queue_->mutex);
    // Once a line was dropped, the next ones wait until that was said, so that it is said in its
    // place.
    const std::size_t cost = line.size() + kCostOfLine;
    if (queue_->dropped > 0 || queue_->bytes + cost > kMostBytes) {
        ++queue_->dropped;
    } else {
        queue_->bytes += cost;
        queue_->lines.push_back(std::move(line));
    }
    queue_->changed.notify_all();
}

} // namespace corvid
