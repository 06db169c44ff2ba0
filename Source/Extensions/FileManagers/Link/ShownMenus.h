#pragma once

#include "Core/Archive/Menu.h"
#include "Core/Base/URL.h"
#include "Extensions/FileManagers/Link/FinderModel.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace corvid::link {

/// What a menu was opened on.
struct Selection {
    URL target;
    std::vector<URL> items;
};

/// A menu as it was shown, so that a click sends the very item that it was made on.
struct ShownMenu {
    struct Entry {
        std::shared_ptr<MenuItem> item;
        bool isClickable = false;
    };
    std::shared_ptr<const Selection> selection;
    std::vector<Entry> entries;
    std::size_t bytes = 0; ///< what all of it takes in memory, as menuBytes() counts it
};

/// What `menu` takes in memory, submenus and opaque fields and all; what is shared counts once.
std::size_t menuBytes(const Menu& menu);
/// The same of a selection.
std::size_t selectionBytes(const Selection& selection);

/// The menus in which front ends may still click. The oldest go first: those of one connection
/// beyond its bounds, and whoever's they are beyond that of all together. The caller guards it.
class ShownMenus {
public:
    using Connection = FinderModel::Connection;

    /// Menus of one connection, and entries of all of them; its newest alone may have more.
    static constexpr std::size_t kMaxMenus = 32;
    static constexpr std::size_t kMaxEntries = 20'000;
    /// Bytes of one menu with its selection; one that has more must not be added.
    static constexpr std::size_t kMaxMenuBytes = std::size_t{64} * 1024 * 1024;
    /// Bytes of all menus of all connections.
    static constexpr std::size_t kMaxBytes = 2 * kMaxMenuBytes;

    /// Keeps a menu under a number that no other has; what a click names.
    std::uint32_t add(Connection connection, ShownMenu menu);
    /// Null when this connection has no such menu any more. Owned by this, until the next call.
    const ShownMenu* find(Connection connection, std::uint32_t number) const;
    void forget(Connection connection);

    std::size_t bytes() const { return bytes_; }

private:
    struct Kept {
        Connection connection = 0;
        ShownMenu menu;
    };
    struct Share {
        std::size_t menus = 0;
        std::size_t entries = 0;
    };
    using ByAge = std::map<std::uint32_t, Kept>;

    ByAge::iterator drop(ByAge::iterator kept);

    ByAge menus_; ///< by number, which is by age
    std::map<Connection, Share> shares_;
    std::size_t bytes_ = 0;
    std::uint32_t lastNumber_ = 0;
};

} // namespace corvid::link
