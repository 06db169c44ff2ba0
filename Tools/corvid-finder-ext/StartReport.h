#pragma once

#include <optional>
#include <string>

namespace corvid {

/// Says how the start of the extension went, to whoever started it.
class StartReport {
public:
    /// With a descriptor the program goes on in the background: what returns is a child process,
    /// its parent has ended, and reports go to that descriptor. Without one, they go to standard
    /// error. To be made before any thread.
    explicit StartReport(std::optional<int> backgroundFd);

    /// The extension serves its front ends, or another one does.
    void ready();
    /// `problem` is a sentence for people.
    void failed(const std::string& problem);

private:
    void send(const std::string& text);

    std::optional<int> fd_;
};

} // namespace corvid
