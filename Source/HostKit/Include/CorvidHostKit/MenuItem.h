#pragma once

#include <string>
#include <vector>

namespace corvid::hostkit {

/// One entry of a menu. All texts are UTF-8.
///
/// An entry is one of four: a line (`isSeparator`), a submenu, an action, or a disabled title that
/// only informs. Submenus hold no submenus of their own: file managers show one level.
struct MenuItem {
    /// What people read.
    std::string title;
    /// What the host calls the thing that a click does, such as "stage". It comes back with the
    /// click, and it alone tells actions apart: the same name is the same action in every menu.
    std::string action;
    std::vector<MenuItem> submenu;
    bool isEnabled = true;
    /// With a mark beside the title.
    bool isChecked = false;
    bool isSeparator = false;

    static MenuItem separator() {
        MenuItem item;
        item.isSeparator = true;
        return item;
    }
};

} // namespace corvid::hostkit
