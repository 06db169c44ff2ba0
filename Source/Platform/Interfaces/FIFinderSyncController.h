#pragma once

#include "Core/Archive/Menu.h"
#include "Core/Base/URL.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// Which menu a file manager asks for; the values are the platform's.
enum class FIMenuKind : int {
    contextualMenuForItems = 0,
    contextualMenuForContainer = 1,
    contextualMenuForSidebar = 2,
    toolbarItemMenu = 3,
};

/// The file manager, as an extension sees it (`FIFinderSyncController`).
class FIFinderSyncController {
public:
    virtual ~FIFinderSyncController() = default;

    /// The one that this process serves; fatal when `main` has set none. Any thread.
    static FIFinderSyncController& defaultController();
    /// Sets it (null for none) and returns the previous one. Not owned. For `main` and for tests.
    static FIFinderSyncController* setDefaultController(FIFinderSyncController* controller);

    /// The folders that the extension watches; the file manager asks about items below them only.
    virtual void setDirectoryURLs(const std::vector<URL>& urls) = 0;

    /// Makes a badge known under `identifier`. `label` is shown to people; nothing for none.
    virtual void setBadgeImage(std::shared_ptr<Image> image,
                               const std::optional<std::string>& label,
                               std::string_view identifier) = 0;

    /// Draws the badge on an item; an identifier that was never registered takes the badge away.
    /// Any thread.
    virtual void setBadgeIdentifier(std::string_view identifier, const URL& url) = 0;

    /// The folder that the menu is opened in, or on; nothing when there is none.
    virtual std::optional<URL> targetedURL() = 0;

    /// The items that the menu is opened on, in the file manager's order; nothing (which is not
    /// the same as an empty list) when there is no selection to speak of.
    virtual std::optional<std::vector<URL>> selectedItemURLs() = 0;
};

} // namespace corvid
