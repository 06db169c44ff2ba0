#pragma once

namespace corvid {

/// Has `lastWords` run when the process is about to die of a signal: SIGSEGV, SIGBUS, SIGILL,
/// SIGFPE and SIGABRT, and SIGTERM, SIGINT and SIGHUP unless the program handles or ignores them
/// already. Afterwards the signal is raised again as if this had never been installed, so that the
/// exit status and the core dump are those of the signal.
///
/// `lastWords` runs once, in the handler, on any thread that does not block the signal: it may
/// take no lock and allocate nothing. The calling thread gets a SignalStack for good. To be called
/// once, from `main`.
void installFatalSignalHandler(void (*lastWords)() noexcept);

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
