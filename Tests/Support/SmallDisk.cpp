#include "Tests/Support/SmallDisk.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>
#include <utility>

namespace corvid {

SmallDisk::SmallDisk(std::string path) : path_(std::move(path)) {
    std::filesystem::create_directories(path_);
    isMounted_ = mount("corvid-test", path_.c_str(), "tmpfs", MS_NOSUID,
                       "size=64k,nr_inodes=64,mode=0700") == 0;
    reason_ = std::strerror(errno);
}

SmallDisk::~SmallDisk() {
    if (isMounted_) {
        umount2(path_.c_str(), MNT_DETACH);
    }
}

void SmallDisk::setReadOnly(bool isReadOnly) {
    const unsigned long flags =
        MS_REMOUNT | MS_NOSUID | (isReadOnly ? static_cast<unsigned long>(MS_RDONLY) : 0UL);
    EXPECT_EQ(mount(nullptr, path_.c_str(), nullptr, flags, nullptr), 0) << std::strerror(errno);
}

void SmallDisk::fillSpace() {
    const std::string block(4096, 'x');
    const int fd = open(ballast(ballasts_++).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0) << std::strerror(errno);
    while (write(fd, block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(errno, ENOSPC);
    close(fd);
}

void SmallDisk::fillPlaces() {
    int fd = -1;
    while ((fd = open(ballast(ballasts_).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) >= 0) {
        close(fd);
        ++ballasts_;
    }
    EXPECT_EQ(errno, ENOSPC);
}

void SmallDisk::empty() {
    while (ballasts_ > 0) {
        std::filesystem::remove(ballast(--ballasts_));
    }
}

std::string SmallDisk::ballast(int number) const {
    return path_ + "/ballast" + std::to_string(number);
}

} // namespace corvid
