#pragma once

#include "Core/Archive/OpaqueObject.h"
#include "Core/Archive/Value.h"
#include "Core/Base/Object.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvid {

/// The name of an action, such as "performAction:". Compared by its text.
struct Selector {
    std::string name;
    friend bool operator==(const Selector&, const Selector&) = default;
};

/// A picture found by its resource name. A new object for each look-up.
class Image : public Object {
public:
    /// The name that was looked up, such as "Cloud_icon_16".
    std::string name;
    /// The file that it stands for, absolute; empty where the platform keeps pictures elsewhere.
    std::string path;
};

/// The mark beside a menu item's title.
enum class MenuItemState : std::int8_t { mixed = -1, off = 0, on = 1 };

class Menu;

/// One entry of a menu, as a host application offers it and gets it back on a click.
///
/// Everything the platform's menu item has that this system reads or sets is a member; whatever
/// else an archive held is kept in `otherFields` and written back as it came. Shared and mutable;
/// the caller keeps it to one thread at a time.
class MenuItem : public Object {
public:
    std::string title;
    std::string keyEquivalent;
    /// The platform's modifier bits; 1 << 20 is Command, which a new item of the platform has.
    std::uint64_t keyEquivalentModifierMask = 0;
    /// The host's own number for the entry; selectors are remembered by it.
    std::int64_t tag = 0;
    MenuItemState state = MenuItemState::off;
    std::int64_t indentationLevel = 0;
    bool isEnabled = true;
    bool isHidden = false;
    bool isAlternate = false;
    bool isSeparator = false;
    std::optional<std::string> toolTip;
    /// What a click sends; nothing when a click does nothing.
    std::optional<Selector> action;
    /// Who a click goes to; never archived with the item. Not owned.
    std::weak_ptr<Object> target;
    /// The picture that the controller set. It is not archived; while it is set, the picture that
    /// came in an archive (in `otherFields`) is not archived either.
    std::shared_ptr<Image> image;
    std::shared_ptr<Menu> submenu;
    /// The menu that the item stands in; archived as a reference only, never with the item.
    std::weak_ptr<Menu> menu;

    /// What an archive held beyond the members above, in its order. A field under the name of a
    /// member (a title of a special class, say) is written in place of the member for as long as
    /// both say the same.
    FieldList otherFields;
    /// The class that the archive gave; null for the platform's own.
    std::shared_ptr<const ObjectClass> archivedClass;

    /// A line between entries: disabled, without a title.
    static std::shared_ptr<MenuItem> separator();

    /// Hangs `below` under the item as the platform does: an item that has no action gets
    /// "submenuAction:", with the submenu as its target.
    void setSubmenu(std::shared_ptr<Menu> below);
};

/// A list of entries with a title.
class Menu : public Object, public std::enable_shared_from_this<Menu> {
public:
    std::string title;
    std::vector<std::shared_ptr<MenuItem>> items;
    /// Whether the platform enables and disables entries by asking their targets.
    bool autoenablesItems = true;

    /// As in MenuItem.
    FieldList otherFields;
    std::shared_ptr<const ObjectClass> archivedClass;

    /// Appends `item` and makes this its menu. The menu must be held by a shared pointer.
    void add(std::shared_ptr<MenuItem> item);
};

} // namespace corvid
