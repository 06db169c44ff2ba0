#include "Commands.h"

namespace corvid {

void addLinkCommands(CLI::App& app) {
    addLsCommand(app);
    addWatchCommand(app);
    addMenuCommand(app);
    addDoCommand(app);
    addStatusCommand(app);
}

} // namespace corvid
