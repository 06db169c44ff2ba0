#include "Platform/Unix/FatalSignals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <iterator>
#include <sys/mman.h>

namespace corvid {

namespace {

constexpr int kFaults[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int kRequests[] = {SIGTERM, SIGINT, SIGHUP};

constexpr std::size_t kSignalStackSize = 64 * 1024;

// Another thread's last words are waited for, lest this signal cut them short; not for ever, for
// that thread may hang.
constexpr time_t kWaitSeconds = 3;
constexpr timespec kWaitStep{0, 1'000'000};

struct Previous {
    int signal = 0;
    struct sigaction action{};
};

void (*lastWordsOfProcess)() noexcept = nullptr;
FatalSignalBounds boundsOfProcess;
std::array<Previous, std::size(kFaults) + std::size(kRequests)> previousActions;
std::size_t previousCount = 0;

/// The thread that says the last words; its number is there from the moment it may. (The address
/// of `errno` tells threads apart on every system, and asking for it takes no lock.)
std::atomic<const int*> speaker{nullptr};
std::atomic<bool> hasSpoken{false};

bool isLater(const timespec& moment, const timespec& than) {
    return moment.tv_sec != than.tv_sec ? moment.tv_sec > than.tv_sec
                                        : moment.tv_nsec > than.tv_nsec;
}

void waitForSpeaker() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const timespec end{now.tv_sec + kWaitSeconds, now.tv_nsec};
    while (!hasSpoken.load() && isLater(end, now)) {
        nanosleep(&kWaitStep, nullptr);
        clock_gettime(CLOCK_MONOTONIC, &now);
    }
}

void handle(int signal) {
    const int errnoBefore = errno;
    if (boundsOfProcess.arm != nullptr) {
        boundsOfProcess.arm(signal);
    }
    const int* nobody = nullptr;
    if (speaker.compare_exchange_strong(nobody, &errno)) {
        lastWordsOfProcess();
        if (boundsOfProcess.letGo != nullptr) {
            boundsOfProcess.letGo();
        }
        hasSpoken.store(true);
    } else if (nobody != &errno) {
        waitForSpeaker();
    }
    for (std::size_t i = 0; i < previousCount; ++i) {
        if (previousActions[i].signal == signal) {
            sigaction(signal, &previousActions[i].action, nullptr);
        }
    }
    // Blocked while this handler runs; it comes when the handler returns.
    raise(signal);
    errno = errnoBefore;
}

void take(int signal, bool onlyIfDefault) {
    Previous previous{signal, {}};
    sigaction(signal, nullptr, &previous.action);
    if (onlyIfDefault && previous.action.sa_handler != SIG_DFL) {
        return;
    }
    previousActions[previousCount++] = previous;
    struct sigaction action{};
    action.sa_handler = handle;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

} // namespace

void installFatalSignalHandler(void (*lastWords)() noexcept, FatalSignalBounds bounds) {
    static const SignalStack stackOfMainThread;
    lastWordsOfProcess = lastWords;
    boundsOfProcess = bounds;
    for (const int signal : kFaults) {
        take(signal, false);
    }
    for (const int signal : kRequests) {
        take(signal, true);
    }
}

SignalStack::SignalStack()
    : memory_(mmap(nullptr, kSignalStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                   -1, 0)) {
    if (memory_ != MAP_FAILED) {
        stack_t stack{};
        stack.ss_sp = memory_;
        stack.ss_size = kSignalStackSize;
        sigaltstack(&stack, nullptr);
    }
}

SignalStack::~SignalStack() {
    if (memory_ != MAP_FAILED) {
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
        munmap(memory_, kSignalStackSize);
    }
}

} // namespace corvid
