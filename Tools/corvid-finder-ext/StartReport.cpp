#include "StartReport.h"

#include "Tools/Support/CommandLine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace corvid {

StartReport::StartReport(std::optional<int> backgroundFd) : fd_(backgroundFd) {
    if (!fd_) {
        return;
    }
    const int flags = ::fcntl(*fd_, F_GETFL);
    if (flags < 0) {
        throw UsageError("--background " + std::to_string(*fd_) +
                         " names no open descriptor; give the number of a pipe's writing end.");
    }
    ::fcntl(*fd_, F_SETFL, flags | O_NONBLOCK);
    ::fcntl(*fd_, F_SETFD, FD_CLOEXEC);
    const pid_t child = ::fork();
    if (child < 0) {
        failed(std::string("The extension cannot go on in the background: ") +
               std::strerror(errno) + "; end some programs, or start it without --background.");
        ::_exit(EXIT_FAILURE);
    }
    if (child > 0) {
        ::_exit(EXIT_SUCCESS);
    }
    // Nothing that the file manager left open is held on to.
    const auto report = static_cast<unsigned>(*fd_);
    if (report > STDERR_FILENO + 1) {
        ::close_range(STDERR_FILENO + 1, report - 1, 0);
    }
    ::close_range(report + 1, ~0U, 0);
}

void StartReport::ready() {
    send("ready");
}

void StartReport::failed(const std::string& problem) {
    if (!fd_) {
        std::fprintf(stderr, "corvid-finder-ext: %s\n", problem.c_str());
    }
    send(problem);
}

void StartReport::send(const std::string& text) {
    if (fd_) {
        [[maybe_unused]] const ssize_t written = ::write(*fd_, text.data(), text.size());
        ::close(*fd_);
        fd_.reset();
    }
}

} // namespace corvid
