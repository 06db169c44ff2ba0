#include "Platform/Unix/OwnedFd.h"

#include <cerrno>
#include <unistd.h>

namespace corvid {

void OwnedFd::reset() {
    if (fd_ >= 0) {
        const int error = errno;
        close(std::exchange(fd_, -1));
        errno = error;
    }
}

} // namespace corvid
