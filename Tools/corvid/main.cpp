// `corvid`: the extension and its parts from a terminal. One file a sub-command.

#include "Commands.h"

#include <clocale>

int main(int argc, char** argv) {
    // Names on the screen take as many columns as the user's locale says.
    std::setlocale(LC_CTYPE, "");
    corvid::CommandLine commandLine("Badges, menus and pushes of a synced volume, in a terminal.",
                                    CORVID_VERSION);
    const corvid::Command program = commandLine.program();
    program.setFooter(
        "Exit status: 0 when done, 1 when it failed, 2 when the command line is wrong.");
    corvid::addDecodeCommand(program);
    corvid::addEncodeCommand(program);
    corvid::addLogsCommand(program);
    corvid::addPortsCommand(program);
    corvid::addPushCommand(program);
    corvid::addLinkCommands(program);
    corvid::addExplainCommand(program);
    return commandLine.run(argc, argv);
}
