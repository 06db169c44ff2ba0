#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace corvid::bench {

/// Durations of one thing that was done again and again, in microseconds.
class Series {
public:
    /// Does `action` once and keeps how long it took.
    template <class Action>
    void measure(Action action) {
        const auto start = std::chrono::steady_clock::now();
        action();
        values_.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
        isSorted_ = false;
    }

    /// The value below which `share` (0 to 1) of the measurements lie.
    double percentile(double share) {
        if (!isSorted_) {
            std::sort(values_.begin(), values_.end());
            isSorted_ = true;
        }
        const auto index = static_cast<std::size_t>(share * static_cast<double>(values_.size()));
        return values_.at(std::min(index, values_.size() - 1));
    }
    double median() { return percentile(0.5); }

private:
    std::vector<double> values_;
    bool isSorted_ = false;
};

} // namespace corvid::bench
