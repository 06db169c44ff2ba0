#include "Tools/corvid-host/Commands.h"
#include "Tools/corvid-host/EventLog.h"
#include "Tools/corvid-host/GitHost.h"

#include <cstdio>
#include <exception>
#include <memory>

namespace corvid {

void addGitCommand(const Command& program) {
    struct Arguments {
        GitHost::Options options;
        bool isJson = false;
    };
    auto arguments = std::make_shared<Arguments>();
    const Command command = program.addCommand(
        "git", "Serve a git work tree: badges say what git status says, and a menu acts on it");
    command.addOption("DIR", arguments->options.folder, "A folder in a git work tree",
                      {.isRequired = true});
    command.addFlag("--read-only", arguments->options.isReadOnly,
                    "Offer nothing that changes the repository");
    command.addFlag("--json", arguments->isJson, "Say what happens as one JSON object a line");
    command.onRun([arguments] {
        EventLog log(stdout, arguments->isJson);
        try {
            blockStopSignals();
            GitHost host(arguments->options, log, isToStop);
            host.open();
            waitForStop();
        } catch (const GitHost::Stopped&) {
            // while it scanned
        } catch (const std::exception& error) {
            log.problem(error.what());
            throw CommandFailure{};
        }
    });
}

} // namespace corvid
