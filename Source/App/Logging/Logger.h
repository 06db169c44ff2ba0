#pragma once

#include <string_view>

namespace corvid {

/// How the controller writes its log lines.
class Logger {
public:
    /// Hands `message`, as it is, to the shared reporting service at level 6. Fatal when there is
    /// no such service. Any thread.
    static void log(std::string_view message);
};

} // namespace corvid
