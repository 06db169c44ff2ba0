#include "Tools/corvid-host/Git/PipeGuard.h"

#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvid {

namespace {

int openAsSystem(const char* path, int flags, mode_t mode) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int openUnlessPipe(const char* path, int flags, mode_t mode) {
    constexpr int kNeverWaits = O_PATH | O_DIRECTORY | O_NONBLOCK;
    if ((flags & O_ACCMODE) != O_RDONLY || (flags & kNeverWaits) != 0) {
        return openAsSystem(path, flags, mode);
    }
    const int fd = openAsSystem(path, flags | O_NONBLOCK, mode);
    struct stat item{};
    if (fd < 0 || fstat(fd, &item) != 0 || S_ISREG(item.st_mode)) {
        return fd;
    }
    if (S_ISFIFO(item.st_mode)) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
}

bool takesMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

} // namespace

void refusePipes() {}

} // namespace corvid

// Under other names in this file, since headers declare open() in ways of their own.
extern "C" {
__attribute__((visibility("default"))) int corvidOpen(const char* path, int flags, ...) asm("open");
__attribute__((visibility("default"))) int corvidOpen64(const char* path, int flags,
                                                        ...) asm("open64");

int corvidOpen(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = corvid::takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return corvid::openUnlessPipe(path, flags, mode);
}

int corvidOpen64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = corvid::takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return corvid::openUnlessPipe(path, flags, mode);
}
}
