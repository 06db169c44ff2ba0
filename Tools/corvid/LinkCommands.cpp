#include "Commands.h"

namespace corvid {

void addLinkCommands(const Command& program) {
    addLsCommand(program);
    addWatchCommand(program);
    addMenuCommand(program);
    addDoCommand(program);
    addStatusCommand(program);
}

} // namespace corvid
