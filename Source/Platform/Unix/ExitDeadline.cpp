#include "Platform/Unix/ExitDeadline.h"

#include "Core/Base/Fatal.h"
#include "Platform/Unix/OwnedFd.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

// All that runs at the end may run in a signal handler, or while another thread hangs with the
// lock of malloc() or of a stream: system calls only, on memory that is there, and none that asks
// a disk. (/proc and sockets are no disk.)

namespace corvid {

namespace {

/// More than the watching thread needs, little enough to be no matter.
constexpr std::size_t kStackSize = 256 * 1024;

/// The descriptors up to here are tried one by one, which needs no free descriptor; those above
/// are found in /proc.
constexpr int kTriedDescriptors = 1024;

// Trivial objects only: the thread outlives the destruction of all others.
sem_t exitArmed;
std::atomic<std::int64_t> exitMoment{0}; ///< nanoseconds of CLOCK_MONOTONIC; 0 while there is none
std::atomic<int> statusOfExit{0};
std::atomic<pid_t> watchedProcess{
    0}; ///< whose thread waits for `exitArmed`; a forked child has none

constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;

std::int64_t monotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosecondsASecond + now.tv_nsec;
}

bool isSocket(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0;
}

bool isPipe(int fd) {
    return fcntl(fd, F_GETPIPE_SZ) >= 0;
}

/// Closes descriptors and leaves in their place one that nothing can be done with.
class Replacement {
public:
    void replace(int fd) {
        if (!hollow_) {
            // Without data: it can neither be read nor written, and no disk is asked.
            hollow_ = OwnedFd(open("/", O_PATH | O_CLOEXEC));
        }
        if (!hollow_ || dup3(hollow_.get(), fd, O_CLOEXEC) < 0) {
            close(fd); // no descriptor was left: this one makes room
        }
    }
    int get() const { return hollow_.get(); }
    /// Makes room for another descriptor, should this be the last one.
    void drop() { hollow_.reset(); }

private:
    OwnedFd hollow_;
};

void releaseChannel(int fd, Replacement& replacement) {
    if (isSocket(fd)) {
        int isListening = 0;
        socklen_t size = sizeof isListening;
        // A thread that waits in accept() keeps the socket beyond its descriptor.
        if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &isListening, &size) == 0 &&
            isListening != 0) {
            shutdown(fd, SHUT_RDWR);
        }
        replacement.replace(fd);
    } else if (isPipe(fd)) {
        replacement.replace(fd);
    }
}

/// `prefix` and a number, as a path.
class NumberedPath {
public:
    NumberedPath(std::string_view prefix, int number) {
        std::array<char, 12> digits{};
        std::size_t count = 0;
        do {
            digits[count++] = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number > 0);
        char* end = std::copy(prefix.begin(), prefix.end(), text_.begin());
        std::reverse_copy(digits.begin(), digits.begin() + count, end);
    }
    const char* get() const { return text_.data(); }

private:
    std::array<char, 48> text_{};
};

/// Whether the description of `fd` has a lock of its own. Asks no disk.
bool hasLock(int fd) {
    const OwnedFd info(open(NumberedPath("/proc/self/fdinfo/", fd).get(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1024> text{};
    const ssize_t size = info ? read(info.get(), text.data(), text.size()) : 0;
    return std::string_view(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0)
               .find("OFDLCK") != std::string_view::npos;
}

void releaseLock(int fd, Replacement& /*replacement*/) {
    if (hasLock(fd)) {
        struct flock whole{};
        whole.l_type = F_UNLCK;
        whole.l_whence = SEEK_SET;
        fcntl(fd, F_OFD_SETLK, &whole);
    }
}

int numberOf(const char* name) {
    std::int64_t number = 0;
    for (; *name >= '0' && *name <= '9' && number <= INT_MAX; ++name) {
        number = number * 10 + (*name - '0');
    }
    return *name == '\0' && number <= INT_MAX ? static_cast<int>(number) : -1;
}

/// Calls `release` with every open descriptor from `first` on.
void forEachDescriptor(void (*release)(int, Replacement&), Replacement& replacement, int first) {
    for (int fd = first; fd < kTriedDescriptors; ++fd) {
        if (fd != replacement.get() && fcntl(fd, F_GETFD) >= 0) {
            release(fd, replacement);
        }
    }
    const OwnedFd folder(open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    alignas(dirent64) std::array<char, 4096> entries{};
    for (ssize_t size = 0;
         folder && (size = getdents64(folder.get(), entries.data(), entries.size())) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(entries.data() + at);
            const int fd = numberOf(entry->d_name);
            if (fd >= kTriedDescriptors && fd != folder.get() && fd != replacement.get()) {
                release(fd, replacement);
            }
            at += entry->d_reclen;
        }
    }
}

/// Lets go of all but the standard streams, which come last: who sees their end finds all else
/// done.
void letGoOfNames(Replacement& replacement) {
    forEachDescriptor(releaseChannel, replacement, STDERR_FILENO + 1);
    // Looking at a descriptor takes another one.
    replacement.drop();
    // Of ours, no lock is on a disk that may hang; but a socket shall not wait even for that.
    forEachDescriptor(releaseLock, replacement, STDERR_FILENO + 1);
}

void sayWhy() {
    const bool isShortWriteSafe =
        isSocket(STDERR_FILENO) || isPipe(STDERR_FILENO) || isatty(STDERR_FILENO) == 1;
    pollfd errors{STDERR_FILENO, POLLOUT, 0};
    // A file may lie on the very disk that hangs, and poll() calls it ready.
    if (!isShortWriteSafe || poll(&errors, 1, 0) != 1 || (errors.revents & POLLOUT) == 0) {
        return;
    }
    std::array<char, 256> text{};
    char* end = text.data();
    const auto add = [&](std::string_view part) {
        const auto room = static_cast<std::size_t>(text.data() + text.size() - end);
        end = std::copy_n(part.data(), std::min(part.size(), room), end);
    };
    add(program_invocation_short_name);
    add(": the end took too long, since something does not answer (a disk, or another process); "
        "what was left to do is given up.\n");
    const auto size = static_cast<std::size_t>(end - text.data());
    if (isSocket(STDERR_FILENO)) {
        send(STDERR_FILENO, text.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL);
        return;
    }
    // Another process may have filled it since poll(): written to without waiting, through a
    // description of our own, since the flags of that one are everybody's.
    const OwnedFd own(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (own) {
        [[maybe_unused]] const ssize_t ignored = write(own.get(), text.data(), size);
    }
}

void releaseStandardStreams(Replacement& replacement) {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        releaseChannel(fd, replacement);
    }
}

[[noreturn]] void endNow() {
    Replacement replacement;
    letGoOfNames(replacement);
    sayWhy();
    releaseStandardStreams(replacement);
    for (;;) {
        // Not _exit(), round which tools put work of their own.
        syscall(SYS_exit_group, statusOfExit.load());
    }
}

void* watchExit(void* /*unused*/) {
    while (sem_wait(&exitArmed) != 0) {
    }
    const std::int64_t moment = exitMoment.load();
    const timespec until{moment / kNanosecondsASecond, moment % kNanosecondsASecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    endNow();
}

void armAlarm(std::chrono::milliseconds after) {
    struct sigaction end{};
    end.sa_handler = [](int) { endNow(); };
    sigfillset(&end.sa_mask);
    sigaction(SIGALRM, &end, nullptr);
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    const std::int64_t microseconds =
        std::max<std::int64_t>(1, std::chrono::microseconds(after).count());
    itimerval once{};
    once.it_value.tv_sec = microseconds / 1'000'000;
    once.it_value.tv_usec = microseconds % 1'000'000;
    setitimer(ITIMER_REAL, &once, nullptr);
}

} // namespace

void ExitDeadline::install() noexcept {
    if (watchedProcess.load() == getpid()) {
        return;
    }
    setAlarmHook([]() noexcept { armForSignal(SIGABRT); });
    sem_init(&exitArmed, 0, 0);
    // The child of a process that is about to end has its own time.
    pthread_atfork(nullptr, nullptr, [] { exitMoment.store(0); });
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackSize);
    pthread_t thread{};
    if (pthread_create(&thread, &attributes, watchExit, nullptr) == 0) {
        watchedProcess.store(getpid());
    }
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void ExitDeadline::arm(int exitStatus, std::chrono::milliseconds after) noexcept {
    const int errnoBefore = errno;
    const std::int64_t moment = monotonicNanoseconds() +
                                std::chrono::duration_cast<std::chrono::nanoseconds>(after).count();
    std::int64_t none = 0;
    if (exitMoment.compare_exchange_strong(none, moment)) {
        statusOfExit.store(exitStatus);
        if (watchedProcess.load() == getpid()) {
            sem_post(&exitArmed);
        } else {
            armAlarm(after);
        }
    }
    errno = errnoBefore;
}

void ExitDeadline::letGo() noexcept {
    const int errnoBefore = errno;
    Replacement replacement;
    letGoOfNames(replacement);
    releaseStandardStreams(replacement);
    errno = errnoBefore;
}

} // namespace corvid
