#include "StandardStreams.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace corvid {

namespace {

constexpr timeval kSocketPatience{1, 0};

/// Opens what `fd` leads to once more, for this process alone: whether one waits is a property of
/// the opening, which others share until then.
void writeWithoutWaiting(int fd) {
    struct stat status{};
    if (::fstat(fd, &status) != 0) {
        return;
    }
    if (S_ISSOCK(status.st_mode)) { // which cannot be opened
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kSocketPatience, sizeof kSocketPatience);
    } else if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
        const int other = ::open(("/proc/self/fd/" + std::to_string(fd)).c_str(),
                                 O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (other >= 0) {
            ::dup2(other, fd);
            ::close(other);
        }
    }
}

} // namespace

void prepareStandardStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) < 0) {
            ::open("/dev/null", O_RDWR); // gets this number, the lowest one that is free
        }
    }
    // A reader that goes away shows as an error where it is written to.
    ::signal(SIGPIPE, SIG_IGN);
    writeWithoutWaiting(STDOUT_FILENO);
    writeWithoutWaiting(STDERR_FILENO);
}

} // namespace corvid
