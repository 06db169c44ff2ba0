// `corvid`: the extension and its parts from a terminal. One file a sub-command.

#include "Commands.h"

#include <CLI/CLI.hpp>

#include <clocale>

int main(int argc, char** argv) {
    // Names on the screen take as many columns as the user's locale says.
    std::setlocale(LC_CTYPE, "");
    CLI::App app{"Badges, menus and pushes of a synced volume, in a terminal."};
    app.set_version_flag("--version", CORVID_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 when done, 1 when it failed, 2 when the command line is wrong.");
    corvid::addDecodeCommand(app);
    corvid::addEncodeCommand(app);
    corvid::addLogsCommand(app);
    corvid::addPortsCommand(app);
    corvid::addPushCommand(app);
    corvid::addLinkCommands(app);
    corvid::addExplainCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& error) {
        return error.get_exit_code();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return 0;
}
