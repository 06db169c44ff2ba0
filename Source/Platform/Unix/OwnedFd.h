#pragma once

#include <utility>

namespace corvid {

/// A file descriptor that closes with its owner.
class OwnedFd {
public:
    OwnedFd() = default;
    /// Takes `fd`; -1 for none.
    explicit OwnedFd(int fd) : fd_(fd) {}
    OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~OwnedFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// Closes it now. `errno` is kept.
    void reset();

private:
    int fd_ = -1;
};

} // namespace corvid
