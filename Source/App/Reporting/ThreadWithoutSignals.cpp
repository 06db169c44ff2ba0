#include "App/Reporting/ThreadWithoutSignals.h"

#include <csignal>
#include <system_error>
#include <utility>

namespace corvid {

std::thread threadWithoutSignals(std::function<void()> body) {
    sigset_t asynchronous;
    sigset_t before;
    sigfillset(&asynchronous);
    for (const int fault : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
        sigdelset(&asynchronous, fault);
    }
    pthread_sigmask(SIG_SETMASK, &asynchronous, &before);
    std::thread thread;
    try {
        thread = std::thread(std::move(body));
    } catch (const std::system_error&) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace corvid
