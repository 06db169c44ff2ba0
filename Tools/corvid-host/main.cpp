// `corvid-host`: host applications to try the extension with.

#include "Tools/corvid-host/Commands.h"

#include "Platform/Unix/ExitDeadline.h"

#include <atomic>
#include <csignal>
#include <thread>

namespace corvid {

namespace {

// Used by a thread that is there until the process ends.
std::atomic<bool> stopWasAsked{false};

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

} // namespace

void blockStopSignals() {
    ExitDeadline::install();
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int signal = 0;
        sigwait(&signals, &signal);
        ExitDeadline::arm(0);
        stopWasAsked = true;
        stopWasAsked.notify_all();
    }).detach();
}

bool isToStop() {
    return stopWasAsked;
}

void waitForStop() {
    stopWasAsked.wait(false);
}

} // namespace corvid

int main(int argc, char** argv) {
    corvid::CommandLine commandLine(
        "Host applications to try the extension with: what a sync client would say.",
        CORVID_VERSION);
    const corvid::Command program = commandLine.program();
    program.setFooter("Exit status: 0 when stopped by SIGINT or SIGTERM, 1 when it failed, 2 when "
                      "the command line is wrong.");
    corvid::addGitCommand(program);
    corvid::addRulesCommand(program);
    return commandLine.run(argc, argv);
}
