#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>

namespace corvid::gtk {

/// Items whose badge is known before the file manager has read them from their folder. It takes
/// seconds to read a large one, and says of no item when it has: they are looked for from time to
/// time. One thread.
class AbsentItems {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds kPeriod{50};
    /// What is added beyond so many is left to the file manager's own question.
    static constexpr std::size_t kMaxItems = 10'000;
    /// All are forgotten when none has come for so long: the file manager leaves them out.
    static constexpr std::chrono::seconds kPatience{10};

    void add(std::string path, Clock::time_point now);
    bool isEmpty() const { return paths_.empty(); }
    /// Looks for each of them once, or until `slice` has passed, and forgets those of which
    /// `isThere` says that they are.
    void lookFor(const std::function<bool(const std::string& path)>& isThere, Clock::time_point now,
                 Clock::duration slice);

private:
    std::deque<std::string> paths_;
    Clock::time_point lastNews_{}; ///< when one was added or came
};

} // namespace corvid::gtk
