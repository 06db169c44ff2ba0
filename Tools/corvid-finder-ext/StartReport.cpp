#include "StartReport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace corvid {

StartReport::StartReport(std::optional<int> backgroundFd) : fd_(backgroundFd) {
    if (!fd_) {
        return;
    }
    ::fcntl(*fd_, F_SETFD, FD_CLOEXEC);
    if (::fork() > 0) {
        ::_exit(EXIT_SUCCESS);
    }
    // Nothing that the file manager left open is held on to.
    ::close_range(static_cast<unsigned>(*fd_) + 1, ~0U, 0);
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
