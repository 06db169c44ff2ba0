#pragma once

#include <string_view>

namespace corvid {

/// The system's own log (`NSLog`), for what cannot be said through the reporting service.
class SystemLog {
public:
    virtual ~SystemLog() = default;
    /// One line. Any thread.
    virtual void log(std::string_view message) = 0;
};

} // namespace corvid
