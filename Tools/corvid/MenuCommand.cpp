#include "Commands.h"
#include "MenuOnItems.h"

#include <cstdio>
#include <memory>

namespace corvid {

namespace {

struct MenuOptions {
    LinkOptions link;
    std::vector<std::string> paths;
    bool isBackground = false;
};

void showMenu(const MenuOptions& options) {
    const Deadline deadline(options.link.timeout());
    const auto session = openSession(options.link, deadline);
    const MenuOnItems menu(*session, options.paths, options.isBackground, deadline);
    if (options.link.isJSON) {
        printJSON(menu.json(), 2);
        return;
    }
    if (menu.reply().entries.empty()) {
        std::puts("The host offers nothing here.");
        return;
    }
    for (const std::string& line : menu.lines()) {
        std::printf("%s\n", line.c_str());
    }
}

} // namespace

void addMenuCommand(const Command& program) {
    auto options = std::make_shared<MenuOptions>();
    const Command command =
        program.addCommand("menu", "Show the menu that the host offers on items");
    command.addOption("PATH", options->paths, "The selected items", {.isRequired = true});
    command.addFlag("--background", options->isBackground,
                    "The menu of the folder PATH's background instead");
    addLinkOptions(command, options->link);
    command.setFooter("Exit status: 3 when no host application answers.");
    command.onRun([options] { showMenu(*options); });
}

} // namespace corvid
