#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace corvid {

/// Runs the program `command[0]` (a full path) with `input` as its standard input, and waits.
/// Nothing when it ended with status 0, else what went wrong, naming the program. Any thread.
std::optional<std::string> runCommand(const std::vector<std::string>& command,
                                      const std::string& input);

/// Programs that are started and left to themselves. One thread.
class BackgroundPrograms {
public:
    /// As runCommand(), but does not wait: nothing when the program was started.
    std::optional<std::string> start(const std::vector<std::string>& command);

private:
    /// Those that may still run; each start collects the ones that have ended.
    std::vector<pid_t> children_;
};

} // namespace corvid
