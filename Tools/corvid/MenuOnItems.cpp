#include "MenuOnItems.h"

#include "Core/Base/PrintableText.h"
#include "Platform/Interfaces/FIFinderSyncController.h"
#include "Tools/Support/Terminal.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace corvid {

using namespace link;

namespace {

void addLines(std::vector<std::string>& lines, const std::vector<MenuEntry>& entries,
              const std::string& margin) {
    std::vector<const MenuEntry*> visible;
    for (const MenuEntry& entry : entries) {
        if (!entry.isHidden) {
            visible.push_back(&entry);
        }
    }
    const bool hasColours = mayColour(stdout);
    for (const MenuEntry* entry : visible) {
        const bool isLast = entry == visible.back();
        std::string line = margin + (isLast ? "└─ " : "├─ ");
        if (entry->isSeparator) {
            line += "────────";
        } else {
            line.append(std::size_t{2} * entry->indentation, ' ');
            line += entry->state > 0 ? "[x] " : entry->state < 0 ? "[-] " : "";
            line += printableText(entry->title);
            if (!entry->isEnabled) {
                line = coloured(line.append(" (disabled)"), Colour::grey, hasColours);
            }
        }
        lines.push_back(std::move(line));
        addLines(lines, entry->submenu, margin + (isLast ? "   " : "│  "));
    }
}

nlohmann::json jsonOf(const std::vector<MenuEntry>& entries, std::uint32_t& number) {
    nlohmann::json result = nlohmann::json::array();
    for (const MenuEntry& entry : entries) {
        nlohmann::json object{{"number", number++},
                              {"title", entry.title},
                              {"enabled", entry.isEnabled},
                              {"hidden", entry.isHidden},
                              {"separator", entry.isSeparator},
                              {"state", entry.state > 0   ? "on"
                                        : entry.state < 0 ? "mixed"
                                                          : "off"}};
        if (!entry.toolTip.empty()) {
            object["toolTip"] = entry.toolTip;
        }
        if (!entry.iconName.empty()) {
            object["icon"] = entry.iconName;
        }
        if (entry.hasSubmenu) {
            object["submenu"] = jsonOf(entry.submenu, number);
        }
        result.push_back(std::move(object));
    }
    return result;
}

void addAll(std::vector<MenuOnItems::Found>& found, const std::vector<MenuEntry>& entries,
            const std::string& above, std::uint32_t& number) {
    for (const MenuEntry& entry : entries) {
        const std::string title = above + entry.title;
        found.push_back({number++, &entry, title});
        addAll(found, entry.submenu, title + " > ", number);
    }
}

} // namespace

MenuOnItems::MenuOnItems(LinkSession& session, const std::vector<std::string>& paths,
                         bool isBackground, const Deadline& deadline) {
    std::vector<SelectedItem> selection;
    selection.reserve(paths.size());
    for (const std::string& path : paths) {
        selection.push_back(selectedItem(path, session));
    }
    isBackground = isBackground || selection.front().path == session.volume();
    if (isBackground && (selection.size() != 1 || !selection.front().isFolder)) {
        fail("A background menu is that of one folder; name one folder.");
    }
    const std::string folder =
        isBackground ? selection.front().path : folderOf(selection.front().path);
    const FIMenuKind kind =
        isBackground ? FIMenuKind::contextualMenuForContainer : FIMenuKind::contextualMenuForItems;
    try {
        reply_ =
            session.menu(folder, std::move(selection), static_cast<std::uint8_t>(kind), deadline);
    } catch (const LinkError& error) {
        fail(error.what());
    }
    switch (reply_.outcome) {
    case MenuOutcome::made:
        break;
    case MenuOutcome::superseded:
        fail("Another menu was asked for meanwhile.");
    case MenuOutcome::notOnVolume:
        fail("An item's name is not UTF-8, so the host cannot be asked about it.");
    case MenuOutcome::tooLarge:
        fail("The host's menu has more entries than the extension passes on.");
    case MenuOutcome::hostFailed:
        fail("The host application did not answer. Try again, or restart it.", kNoHostStatus);
    }
    if (session.hostState() == HostState::absent) {
        fail("No host application is running, so there is no menu. Start one, for example with: "
             "corvid-host git " +
                 printableText(session.volume()),
             kNoHostStatus);
    }
}

std::vector<std::string> MenuOnItems::lines() const {
    std::vector<std::string> result{printableText(reply_.title)};
    addLines(result, reply_.entries, "");
    return result;
}

nlohmann::json MenuOnItems::json() const {
    std::uint32_t number = 0;
    return {{"title", reply_.title}, {"entries", jsonOf(reply_.entries, number)}};
}

std::vector<MenuOnItems::Found> MenuOnItems::all() const {
    std::vector<Found> found;
    std::uint32_t number = 0;
    addAll(found, reply_.entries, "", number);
    std::erase_if(found,
                  [](const Found& one) { return one.entry->isSeparator || one.entry->isHidden; });
    return found;
}

std::vector<MenuOnItems::Found> MenuOnItems::find(const std::string& title) const {
    std::vector<Found> byTitle;
    for (Found& one : all()) {
        if (one.title == title) {
            return {std::move(one)};
        }
        if (one.entry->title == title) {
            byTitle.push_back(std::move(one));
        }
    }
    return byTitle;
}

std::vector<std::string> MenuOnItems::clickableTitles() const {
    std::vector<std::string> titles;
    for (const Found& one : all()) {
        if (one.entry->isEnabled && !one.entry->hasSubmenu) {
            titles.push_back(one.title);
        }
    }
    return titles;
}

} // namespace corvid
