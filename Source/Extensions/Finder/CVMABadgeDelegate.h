#pragma once

#include "Core/Base/URL.h"
#include "Extensions/Finder/CVMABadgeID.h"

namespace corvid {

/// Takes the badges that the host application pushes. Held weakly by the badge handler.
class CVMABadgeDelegate {
public:
    virtual ~CVMABadgeDelegate() = default;
    /// Draws `badgeID` on the item. Called on CVMAMessagePort::messagePortQueue().
    virtual void setBadge(CVMABadgeID badgeID, const URL& url) = 0;
};

} // namespace corvid
