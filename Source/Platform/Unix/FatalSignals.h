#pragma once

namespace corvid {

/// What the handler of a fatal signal does besides the last words, where a disk may hang; null for
/// nothing. Both run in the handler as `lastWords` does. See ExitDeadline.
struct FatalSignalBounds {
    /// First of all: bounds the time of the rest.
    void (*arm)(int signal) noexcept = nullptr;
    /// Before the signal is raised again: a core dump waits for all threads, and a thread that
    /// hangs on a disk keeps it waiting.
    void (*letGo)() noexcept = nullptr;
};

/// Has `lastWords` run when the process is about to die of a signal: SIGSEGV, SIGBUS, SIGILL,
/// SIGFPE and SIGABRT, and SIGTERM, SIGINT and SIGHUP unless the program handles or ignores them
/// already. Afterwards the signal is raised again as if this had never been installed, so that the
/// exit status and the core dump are those of the signal.
///
/// Of several threads that get such a signal one says the last words; the others wait for it, for
/// three seconds at most. `lastWords` runs once, in the handler, on any thread that does not block
/// the signal: it may take no lock and allocate nothing. The calling thread gets a SignalStack for
/// good. To be called once, from `main`.
void installFatalSignalHandler(void (*lastWords)() noexcept, FatalSignalBounds bounds = {});

/// A stack of its own for the signal handlers of the thread that makes and destroys it, so that
/// they run even when the thread's stack is used up. For the body of a thread.
class SignalStack {
public:
    SignalStack();
    ~SignalStack();
    SignalStack(const SignalStack&) = delete;
    SignalStack& operator=(const SignalStack&) = delete;

private:
    void* memory_;
};

} // namespace corvid
