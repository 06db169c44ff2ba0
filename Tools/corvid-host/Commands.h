#pragma once

namespace CLI {
class App;
}

namespace corvid {

// Each adds one sub-command of `corvid-host` to `app`. A command that fails says why on standard
// error and throws CLI::RuntimeError with its exit status.

void addGitCommand(CLI::App& app);
void addRulesCommand(CLI::App& app);

/// Returns when the process is told to stop, by SIGINT or SIGTERM.
void waitForStop();

/// Keeps SIGINT and SIGTERM for waitForStop(), in this thread and all that it starts from here on;
/// called before the first of them.
void blockStopSignals();

} // namespace corvid
