#pragma once

#include "Tools/Support/CommandLine.h"

namespace corvid {

// Each adds one sub-command of `corvid` to `program`. A command that fails says why with fail()
// (exit status 1 unless its help says otherwise).

void addDecodeCommand(const Command& program);
void addEncodeCommand(const Command& program);
void addLogsCommand(const Command& program);
void addPortsCommand(const Command& program);
void addPushCommand(const Command& program);
/// ls, watch, menu, do and status, where the system has the Finder link; elsewhere none.
void addLinkCommands(const Command& program);
void addDoCommand(const Command& program);
void addLsCommand(const Command& program);
void addMenuCommand(const Command& program);
void addStatusCommand(const Command& program);
void addWatchCommand(const Command& program);
void addExplainCommand(const Command& program);

} // namespace corvid
