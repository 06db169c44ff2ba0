#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>

namespace corvid::gtk {

/// Items that are to be drawn anew, each once however often it is added, and when.
///
/// A file manager gathers what changes for a tenth of a second and then brings all of it up to date
/// at once, an item as often as it changed: badges that change faster than people can see would
/// hold up its window. Changes are therefore spread out. What is drawn for the first time is not:
/// the folder is being loaded then. One thread.
class RedrawQueue {
public:
    using Clock = std::chrono::steady_clock;
    enum class Reason : std::uint8_t {
        firstBadge, ///< it has a badge and had none: nothing that was drawn has to go
        cameIntoView,
        changed,
    };
    struct Item {
        std::string path; ///< empty for none
        Reason reason;
    };

    /// Changes that are handed out in one period.
    static constexpr std::size_t kChangesAtOnce = 96;
    static constexpr std::chrono::milliseconds kPeriod{100};

    void add(std::string path, Reason reason);
    /// The next item; none when there is none, or none yet.
    Item take(Clock::time_point now);
    /// When take() has the next item, in the past for at once; nothing when the queue is empty.
    std::optional<Clock::time_point> due() const;

private:
    std::deque<Item> appeared_; ///< what is not spread out
    std::deque<std::string> changed_;
    std::unordered_set<std::string> waiting_; ///< what is in either
    Clock::time_point periodStart_{};
    std::size_t takenInPeriod_ = 0;
};

} // namespace corvid::gtk
