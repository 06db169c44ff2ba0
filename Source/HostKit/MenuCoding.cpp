#include "HostKit/MenuCoding.h"

#include "Core/Base/UTF8.h"

#include <fmt/format.h>

namespace corvid::hostkit {

namespace {

std::optional<std::string> itemFault(const MenuItem& item, bool isInSubmenu) {
    if (item.isSeparator) {
        return std::nullopt;
    }
    if (!isValidUTF8(item.title) || !isValidUTF8(item.action)) {
        return "a menu entry has a title or an action that is not UTF-8; convert it";
    }
    if (item.title.empty()) {
        return fmt::format("a menu entry has no title (its action is \"{}\"); give it one",
                           item.action);
    }
    if (!item.submenu.empty() && isInSubmenu) {
        return fmt::format("the entry \"{}\" is a submenu within a submenu, which file managers "
                           "do not show; move its entries one level up",
                           item.title);
    }
    if (!item.submenu.empty() && !item.action.empty()) {
        return fmt::format("the entry \"{}\" has both a submenu and the action \"{}\", and could "
                           "never be clicked; give the action to an entry of its own",
                           item.title, item.action);
    }
    if (item.submenu.empty() && item.action.empty() && item.isEnabled) {
        return fmt::format("a click on the entry \"{}\" would do nothing; give it an action, or "
                           "set isEnabled to false",
                           item.title);
    }
    for (const MenuItem& subItem : item.submenu) {
        if (auto fault = itemFault(subItem, true)) {
            return fault;
        }
    }
    return std::nullopt;
}

std::shared_ptr<corvid::MenuItem> itemToSend(const MenuItem& item) {
    if (item.isSeparator) {
        return corvid::MenuItem::separator();
    }
    auto sent = std::make_shared<corvid::MenuItem>();
    sent->title = item.title;
    sent->isEnabled = item.isEnabled;
    sent->state = item.isChecked ? MenuItemState::on : MenuItemState::off;
    if (!item.action.empty()) {
        sent->tag = actionTag(item.action);
        sent->action = Selector{item.action};
    }
    if (!item.submenu.empty()) {
        sent->submenu = std::make_shared<Menu>();
        sent->submenu->title = item.title;
        sent->submenu->autoenablesItems = false;
        sent->submenu->items = menuToSend(item.submenu);
    }
    return sent;
}

} // namespace

std::optional<std::string> menuFault(const std::vector<MenuItem>& items) {
    for (const MenuItem& item : items) {
        if (auto fault = itemFault(item, false)) {
            return fault;
        }
    }
    return std::nullopt;
}

std::vector<std::shared_ptr<corvid::MenuItem>> menuToSend(const std::vector<MenuItem>& items) {
    std::vector<std::shared_ptr<corvid::MenuItem>> sent;
    sent.reserve(items.size());
    for (const MenuItem& item : items) {
        sent.push_back(itemToSend(item));
    }
    return sent;
}

std::int64_t actionTag(std::string_view action) {
    // FNV-1a, 64 bits, less the sign. 0 is left to entries without an action.
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : action) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    const auto tag = static_cast<std::int64_t>(hash >> 1);
    return tag != 0 ? tag : 1;
}

std::optional<std::string> clickedAction(const corvid::MenuItem& item) {
    if (!item.action || actionTag(item.action->name) != item.tag) {
        return std::nullopt;
    }
    return item.action->name;
}

} // namespace corvid::hostkit
