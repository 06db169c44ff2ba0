#pragma once

namespace corvid {

/// The wall clock of this process is set back by an hour whenever somebody looks at it, for the
/// life of the object. The monotonic clock goes on as it does.
class RestlessClock {
public:
    RestlessClock();
    ~RestlessClock();
    RestlessClock(const RestlessClock&) = delete;
    RestlessClock& operator=(const RestlessClock&) = delete;
};

} // namespace corvid
