#pragma once

#include "Core/Archive/Menu.h"
#include "Core/Base/Object.h"
#include "Core/Base/URL.h"
#include "Platform/Interfaces/FIFinderSyncController.h"

#include <memory>

namespace corvid {

/// An extension, as a file manager sees it (`FIFinderSync`): the callbacks that a file manager
/// makes. Each may wait for the host application, a second or two at worst, and returns when all
/// is done; what it has to say it says to `FIFinderSyncController::defaultController()`.
///
/// Badge requests may run on several threads at once. The rest is called on one thread at a time.
class FIFinderSync : public Object {
public:
    /// A folder comes on screen.
    virtual void beginObservingDirectory(const URL& url) = 0;
    /// A folder is shown no longer.
    virtual void endObservingDirectory(const URL& url) = 0;
    /// An item is drawn: sets its badge before it returns, or leaves it as it is.
    virtual void requestBadgeIdentifier(const URL& url) = 0;
    /// The menu for the controller's selection. The items' targets are this object.
    virtual std::shared_ptr<Menu> menu(FIMenuKind kind) = 0;
    /// A menu item of menu() was clicked: the action "performAction:".
    virtual void performAction(const std::shared_ptr<Object>& sender) = 0;
};

} // namespace corvid
