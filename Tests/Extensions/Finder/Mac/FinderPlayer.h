#pragma once

#include "Core/Archive/Menu.h"
#include "Platform/Interfaces/FIFinderSyncController.h"

#include <cstddef>
#include <string>
#include <vector>

namespace corvid {

/// A file manager that a test plays, with one extension behind it.
class FinderPlayer {
public:
    virtual ~FinderPlayer() = default;
    virtual void startExtension() = 0;
    /// Releases it.
    virtual void endExtension() = 0;
    virtual void beginObserving(const URL& folder) = 0;
    virtual void endObserving(const URL& folder) = 0;
    virtual void show(const URL& item) = 0;
    /// What the next menu is opened on.
    virtual void select(const std::optional<URL>& targeted,
                        const std::optional<std::vector<URL>>& selected) = 0;
    /// Opens a menu and describes it: each item with its target and picture.
    virtual std::string openMenu(FIMenuKind kind) = 0;
    /// Clicks an item of the open menu, found by its place in each menu on the way.
    virtual void click(const std::vector<std::size_t>& place) = 0;
    /// Performs the action with a sender that is no menu item.
    virtual void clickSomethingElse() = 0;
    /// Returns when the file manager was told of at least `count` badges on items.
    virtual void waitForBadges(std::size_t count) = 0;
};

} // namespace corvid
