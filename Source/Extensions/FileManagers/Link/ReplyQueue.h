#pragma once

#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <deque>
#include <optional>
#include <utility>

namespace corvid::link {

/// What one front end is to be told besides badges, oldest first. The caller guards it.
///
/// Its bytes are those that the messages take in memory. A front end whose queue isFull() is given
/// no new menu or click to wait for, so what is stored is at most kFullSize and the replies to what
/// was in work and received by then.
class ReplyQueue {
public:
    static constexpr std::size_t kFullSize = std::size_t{1024} * 1024;

    void add(Message message);
    /// Adds state in place of older state of its kind that the front end has not taken: that is out
    /// of date.
    void replace(const Message& message);
    /// The oldest, taken out; nothing when there is none.
    std::optional<Message> take();

    std::size_t bytes() const { return bytes_; }
    bool isFull() const { return bytes_ >= kFullSize; }

private:
    std::deque<std::pair<Message, std::size_t>> messages_;
    std::size_t bytes_ = 0;
};

} // namespace corvid::link
