#pragma once

#include "Core/Base/Mutex.h"

#include <string>
#include <utility>
#include <vector>

namespace corvid {

/// The calls that the fakes of one test were given, in order, one line each. The fakes of a test
/// share one, so that the order between them is seen. Any thread.
class CallLog {
public:
    void add(std::string line) {
        const MutexLock lock(mutex_);
        lines_.push_back(std::move(line));
    }
    std::vector<std::string> lines() const {
        const MutexLock lock(mutex_);
        return lines_;
    }
    void clear() {
        const MutexLock lock(mutex_);
        lines_.clear();
    }

private:
    mutable Mutex mutex_;
    std::vector<std::string> lines_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
