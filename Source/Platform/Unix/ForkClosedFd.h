#pragma once

#include "Platform/Unix/OwnedFd.h"

namespace corvid {

/// A descriptor that a forked child does not keep. Close-on-exec covers a child that runs another
/// program; this covers one that does not, and that would otherwise go on holding the name, the
/// lock or the conversation of a parent that has died.
class ForkClosedFd {
public:
    ForkClosedFd() = default;
    explicit ForkClosedFd(OwnedFd fd);
    ForkClosedFd(ForkClosedFd&& other) noexcept;
    ForkClosedFd& operator=(ForkClosedFd&& other) noexcept;
    ~ForkClosedFd();

    /// -1 when there is none, and in a forked child.
    int get() const { return fd_.get(); }
    explicit operator bool() const { return static_cast<bool>(fd_); }
    void reset();

private:
    friend struct ForkList;
    OwnedFd fd_;
    ForkClosedFd* previous_ = nullptr;
    ForkClosedFd* next_ = nullptr;
};

} // namespace corvid
