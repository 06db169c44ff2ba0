#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace corvid {

struct FileEvent;

/// Reads the lines of the extension's log files as they are written, from file to file and from
/// process to process. Failures are std::system_error. One thread.
class LogFollower {
public:
    /// Called with each line, newline included.
    using Sink = std::function<void(std::string_view line)>;

    /// Follows the files in `folder`, which must exist.
    LogFollower(std::string folder, Sink sink);

    /// Gives the last `count` lines that there are; what is written afterwards comes from follow().
    void readLast(std::size_t count);

    /// Gives every line that is written from now on. Calls `idle` each time it has caught up,
    /// before it waits. Returns when the folder is gone.
    void follow(const std::function<void()>& idle);

private:
    struct Followed {
        OwnedFd file; ///< open once it was read from, so that its end is read after its deletion
        std::uint64_t offset = 0;
        std::string lineBegun;
    };

    void note(const FileEvent& event);
    void begin(const std::string& name);
    void read(const std::string& name, Followed& followed);

    const std::string folder_;
    const Sink sink_;
    const OwnedFd watch_;
    std::map<std::string, Followed> files_;
    std::map<pid_t, std::string> newestOfProcess_;
};

} // namespace corvid
