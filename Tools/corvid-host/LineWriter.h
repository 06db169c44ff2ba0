#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace corvid {

/// Writes lines to a descriptor on a thread of its own, so that nobody who says something waits
/// for a terminal that was stopped or a pipe that nobody reads.
///
/// What waits to be written is bounded by kMostBytes. A line for which there is no room is dropped
/// and counted, and a line that says how many were dropped follows what was written before them.
/// When the reader is gone, so are the lines. Any thread.
class LineWriter {
public:
    /// Room for every line of a folder of 100,000 files whose badges change.
    static constexpr std::size_t kMostBytes = 16 * 1024 * 1024;
    /// How long the destructor waits for a reader.
    static constexpr std::chrono::milliseconds kLongestEnd{1000};

    /// Gives the line that says that `count` lines were dropped.
    using DroppedLine = std::function<std::string(std::size_t count)>;

    /// `descriptor` is not owned. Where the system gives no thread, add() writes by itself.
    LineWriter(int descriptor, DroppedLine droppedLine);

    /// Waits until all is written, for kLongestEnd at most; what is left then is lost.
    ~LineWriter();
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    /// Writes `line` and a newline, some time soon and in the order of the calls. Never waits.
    void add(std::string line);

private:
    struct Queue;
    /// Shared with the thread, which outlives this object when its write hangs.
    std::shared_ptr<Queue> queue_;
    std::thread thread_;
};

} // namespace corvid
