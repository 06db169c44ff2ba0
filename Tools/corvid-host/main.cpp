// `corvid-host`: host applications to try the extension with.

#include "Tools/corvid-host/Commands.h"

#include <CLI/CLI.hpp>

#include <csignal>

namespace corvid {

namespace {

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

} // namespace

void blockStopSignals() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void waitForStop() {
    const sigset_t signals = stopSignals();
    int signal = 0;
    sigwait(&signals, &signal);
}

} // namespace corvid

int main(int argc, char** argv) {
    CLI::App app{"Host applications to try the extension with: what a sync client would say."};
    app.set_version_flag("--version", CORVID_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 when stopped by SIGINT or SIGTERM, 1 when it failed, 2 when the "
               "command line is wrong.");
    corvid::addGitCommand(app);
    corvid::addRulesCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& error) {
        return error.get_exit_code();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return 0;
}
