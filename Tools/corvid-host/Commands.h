#pragma once

#include "Tools/Support/CommandLine.h"

namespace corvid {

// Each adds one sub-command of `corvid-host` to `program`. A command that fails says why on
// standard error and throws CommandFailure with its exit status.

void addGitCommand(const Command& program);
void addRulesCommand(const Command& program);

/// Keeps SIGINT and SIGTERM for waitForStop(), in this thread and all that it starts from here on;
/// called before the first of them. When one comes, the process ends within
/// ExitDeadline::kLongestEnd, whatever hangs in it, with exit status 0. Throws std::system_error
/// when the system has no thread for it.
void blockStopSignals();

/// True once the process was told to stop. Any thread.
bool isToStop();

/// Returns when the process is told to stop, by SIGINT or SIGTERM.
void waitForStop();

} // namespace corvid
