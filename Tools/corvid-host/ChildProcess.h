#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace corvid {

/// How long a program may take that somebody waits for.
inline constexpr std::chrono::milliseconds kLongestCommand(3000);

/// Runs the program `command[0]` (a full path) with `input` as its standard input, and waits.
/// After `longest` the program, and all that it has started in its process group, is killed.
/// Nothing when it ended with status 0, else what went wrong, naming the program. Any thread.
std::optional<std::string> runCommand(const std::vector<std::string>& command,
                                      const std::string& input,
                                      std::chrono::milliseconds longest = kLongestCommand);

/// Programs that are started and left to themselves. One thread.
class BackgroundPrograms {
public:
    /// So many may run at a time: more than anybody has windows open.
    static constexpr std::size_t kMost = 64;

    /// As runCommand(), but does not wait: nothing when the program was started. Refused while
    /// kMost of them run.
    std::optional<std::string> start(const std::vector<std::string>& command);

private:
    /// Those that may still run; each start collects the ones that have ended.
    std::vector<pid_t> children_;
};

} // namespace corvid
