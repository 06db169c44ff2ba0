#pragma once

#include <optional>
#include <string>

namespace corvid {

/// Says how the start of the extension went, to whoever started it.
class StartReport {
public:
    /// With a descriptor the program goes on in the background: what returns is a child process,
    /// its parent has ended, and reports go to that descriptor; where there can be no child, that
    /// is reported and the program ended. Without one, they go to standard error. Throws
    /// UsageError when the descriptor is not open. To be made before any thread.
    explicit StartReport(std::optional<int> backgroundFd);

    // A reader that is gone, or that does not read, costs the report and no time.

    /// The extension serves its front ends, or another one does.
    void ready();
    /// `problem` is a sentence for people.
    void failed(const std::string& problem);

private:
    void send(const std::string& text);

    std::optional<int> fd_;
};

} // namespace corvid
