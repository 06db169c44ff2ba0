#include "LinkSocket.h"

#include "Core/Base/PrintableText.h"
#include "Extensions/FileManagers/Link/LinkChannel.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid {

OwnedFd LinkSocket::open(std::string& problem) {
    const RuntimeFolder::Opened opened = folder_.open(RuntimeFolder::IfMissing::create);
    if (!opened.fd) {
        problem = opened.problem;
        return {};
    }
    OwnedFd listener = link::listenIn(opened.fd.get());
    struct stat status{};
    if (!listener ||
        ::fstatat(opened.fd.get(), link::kSocketName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        problem = "No socket can be made in " + printableText(folder_.path()) + ": " +
                  std::strerror(errno) + ".";
        return {};
    }
    inode_ = status.st_ino;
    device_ = status.st_dev;
    return listener;
}

bool LinkSocket::isInPlace() const {
    struct stat status{};
    return ::lstat(folder_.pathOf(link::kSocketName).c_str(), &status) == 0 &&
           status.st_ino == inode_ && status.st_dev == device_;
}

void LinkSocket::remove() const {
    if (isInPlace()) {
        ::unlink(folder_.pathOf(link::kSocketName).c_str());
    }
}

} // namespace corvid
