#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <sys/types.h>

#include <vector>

namespace corvid {

/// System calls that hang, as they do on a disk or a network that does not answer. Linux.
///
/// From its making on each call of one number by the calling thread, and by the threads and
/// processes that it starts, waits until this object goes, and then fails with ENOSYS; so do all
/// that come later, since a thread cannot be rid of it. To be made on a thread of its own.
class HeldCalls {
public:
    /// `number` is one of SYS_ in <sys/syscall.h>.
    explicit HeldCalls(int number);
    /// Ends the processes whose calls waitForOne() has seen: each holds a copy of what holds it up,
    /// and would wait for itself for ever.
    ~HeldCalls();
    HeldCalls(const HeldCalls&) = delete;
    HeldCalls& operator=(const HeldCalls&) = delete;

    /// False where the system has no such thing; then no call is held.
    bool work() const { return static_cast<bool>(listener_); }
    /// Waits until one more call is being held; false when none came for a minute.
    bool waitForOne();

private:
    OwnedFd listener_;
    std::vector<pid_t> callers_; ///< threads of this process too
};

} // namespace corvid
