#include "Tests/Support/HeldCalls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace corvid {

namespace {

constexpr int kMinuteInMilliseconds = 60'000;

} // namespace

HeldCalls::HeldCalls(int number) {
    std::array<sock_filter, 4> program{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, static_cast<unsigned>(number)},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_USER_NOTIF},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    }};
    const sock_fprog filter{program.size(), program.data()};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    listener_ = OwnedFd(static_cast<int>(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                                   SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter)));
}

HeldCalls::~HeldCalls() {
    for (const pid_t caller : callers_) {
        if (::syscall(SYS_tgkill, ::getpid(), caller, 0) != 0) {
            ::kill(caller, SIGKILL);
        }
    }
}

bool HeldCalls::waitForOne() {
    pollfd entry{listener_.get(), POLLIN, 0};
    seccomp_notif call{};
    const bool isHeld = ::poll(&entry, 1, kMinuteInMilliseconds) == 1 &&
                        ::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &call) == 0;
    if (isHeld) {
        callers_.push_back(static_cast<pid_t>(call.pid));
    }
    return isHeld;
}

} // namespace corvid
