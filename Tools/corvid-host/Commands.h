#pragma once

#include "Tools/Support/CommandLine.h"

namespace corvid {

// Each adds one sub-command of `corvid-host` to `program`. A command that fails says why on
// standard error and throws CommandFailure with its exit status.

void addGitCommand(const Command& program);
void addRulesCommand(const Command& program);

/// Returns when the process is told to stop, by SIGINT or SIGTERM.
void waitForStop();

/// Keeps SIGINT and SIGTERM for waitForStop(), in this thread and all that it starts from here on;
/// called before the first of them.
void blockStopSignals();

} // namespace corvid
