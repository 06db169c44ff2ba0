#pragma once

namespace CLI {
class App;
}

namespace corvid {

// Each adds one sub-command of `corvid` to `app`. A command that fails says why on standard error
// and throws CLI::RuntimeError with its exit status (1 unless its help says otherwise).

void addDecodeCommand(CLI::App& app);
void addEncodeCommand(CLI::App& app);
void addLogsCommand(CLI::App& app);
void addPortsCommand(CLI::App& app);
void addPushCommand(CLI::App& app);
/// ls, watch, menu, do and status, where the system has the Finder link; elsewhere none.
void addLinkCommands(CLI::App& app);
void addDoCommand(CLI::App& app);
void addLsCommand(CLI::App& app);
void addMenuCommand(CLI::App& app);
void addStatusCommand(CLI::App& app);
void addWatchCommand(CLI::App& app);
void addExplainCommand(CLI::App& app);

} // namespace corvid
