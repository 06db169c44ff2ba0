#include "Commands.h"
#include "Core/Base/PrintableText.h"
#include "MenuOnItems.h"

#include <cstdio>
#include <memory>

namespace corvid {

using namespace link;

namespace {

struct DoOptions {
    LinkOptions link;
    std::vector<std::string> paths;
    std::string title;
    bool isBackground = false;
};

std::string list(const std::vector<std::string>& titles) {
    std::string text;
    for (const std::string& title : titles) {
        text += (text.empty() ? "\"" : ", \"") + printableText(title) + "\"";
    }
    return text;
}

MenuOnItems::Found findOne(const MenuOnItems& menu, const std::string& title) {
    const std::vector<MenuOnItems::Found> found = menu.find(title);
    if (found.empty()) {
        const std::vector<std::string> titles = menu.clickableTitles();
        fail("There is no menu entry \"" + printableText(title) + "\" here; " +
             (titles.empty() ? "the host offers nothing." : "there is: " + list(titles) + "."));
    }
    if (found.size() > 1) {
        std::vector<std::string> titles;
        titles.reserve(found.size());
        for (const MenuOnItems::Found& one : found) {
            titles.push_back(one.title);
        }
        fail("There are several entries \"" + printableText(title) +
             "\"; name one in full: " + list(titles) + ".");
    }
    return found.front();
}

void click(const DoOptions& options) {
    const Deadline deadline(options.link.timeout());
    const auto session = openSession(options.link, deadline);
    const MenuOnItems menu(*session, options.paths, options.isBackground, deadline);
    const MenuOnItems::Found item = findOne(menu, options.title);
    const std::string quoted = "\"" + printableText(item.title) + "\"";
    if (item.entry->hasSubmenu) {
        fail(quoted + " is a submenu; name an entry in it.");
    }
    ClickOutcome outcome{};
    try {
        outcome = session->click(menu.reply().menu, item.number, deadline);
    } catch (const LinkError& error) {
        fail(error.what());
    }
    switch (outcome) {
    case ClickOutcome::sent:
        break;
    case ClickOutcome::unknownMenu:
        fail("The menu has changed meanwhile; try again.");
    case ClickOutcome::notClickable:
        fail(quoted + " is disabled.");
    case ClickOutcome::hostFailed:
        fail("The host application did not take the click. Try again, or restart it.",
             kNoHostStatus);
    case ClickOutcome::hostAbsent:
        fail("The host application has ended; start it again.", kNoHostStatus);
    }
    if (options.link.isJSON) {
        printJSON({{"clicked", item.title}});
    } else {
        std::printf("Clicked %s.\n", quoted.c_str());
    }
}

} // namespace

void addDoCommand(const Command& program) {
    auto options = std::make_shared<DoOptions>();
    const Command command = program.addCommand("do", "Click an entry of the menu on items");
    command.addOption("PATH", options->paths, "The selected items", {.isRequired = true});
    command.addOption("--item", options->title,
                      "The entry's title; in a submenu also \"Copy > Path\"", {.isRequired = true});
    command.addFlag("--background", options->isBackground,
                    "Click in the menu of the folder PATH's background instead");
    addLinkOptions(command, options->link);
    command.setFooter("Exit status: 3 when no host application answers.");
    command.onRun([options] { click(*options); });
}

} // namespace corvid
