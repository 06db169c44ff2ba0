#include "Core/Archive/Menu.h"

namespace corvid {

std::shared_ptr<MenuItem> MenuItem::separator() {
    auto item = std::make_shared<MenuItem>();
    item->isSeparator = true;
    item->isEnabled = false;
    return item;
}

void MenuItem::setSubmenu(std::shared_ptr<Menu> below) {
    submenu = std::move(below);
    if (submenu != nullptr && !action) {
        action = Selector{"submenuAction:"};
        target = submenu;
    }
}

void Menu::add(std::shared_ptr<MenuItem> item) {
    item->menu = weak_from_this();
    items.push_back(std::move(item));
}

} // namespace corvid
