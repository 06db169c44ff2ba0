#include "Platform/Unix/AcceptInterrupter.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace corvid {

bool AcceptInterrupter::prepare() {
    if (hasGivenUp_) {
        return false;
    }
    if (!file_) {
        OwnedFd file(openat(listener_.folder.get(), listener_.file.c_str(),
                            O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status{};
        if (!file || fstat(file.get(), &status) != 0 || status.st_ino != listener_.inode) {
            return false;
        }
        file_ = std::move(file);
    }
    if (!socket_) {
        socket_ = OwnedFd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    }
    return static_cast<bool>(socket_);
}

void AcceptInterrupter::giveUp() {
    hasGivenUp_ = true;
    file_.reset();
    socket_.reset();
}

void AcceptInterrupter::startAnew() {
    file_.reset();
    socket_.reset();
}

void AcceptInterrupter::interrupt() {
    // With no room for one more connection there are enough that end the wait.
    if (socket_ && PortFolder::connectTo(file_.get(), socket_.get()) != 0 && errno != EAGAIN) {
        // Nobody else can connect either: its file has lost the permission to.
        shutdown(listener_.fd.get(), SHUT_RDWR);
    }
    socket_.reset();
}

} // namespace corvid
