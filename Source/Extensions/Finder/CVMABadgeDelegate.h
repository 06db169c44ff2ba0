#pragma once

#include "Core/Base/URL.h"
#include "Extensions/Finder/CVMABadgeID.h"
#include "Extensions/Finder/DelegateGate.h"

#include <memory>

namespace corvid {

/// Takes the badges that the host application pushes. Held weakly by the badge handler.
class CVMABadgeDelegate {
public:
    CVMABadgeDelegate() : gate_(std::make_shared<DelegateGate>(*this)) {}
    /// Closes the gate. When pushes may be in work at its end, a class derived from this one closes
    /// it before any part of itself goes.
    virtual ~CVMABadgeDelegate() { gate_->close(); }
    CVMABadgeDelegate(const CVMABadgeDelegate&) = delete;
    CVMABadgeDelegate& operator=(const CVMABadgeDelegate&) = delete;

    /// Draws `badgeID` on the item. Called on CVMAMessagePort::messagePortQueue().
    virtual void setBadge(CVMABadgeID badgeID, const URL& url) = 0;

    /// What refers to this object weakly; stays after it.
    const std::shared_ptr<DelegateGate>& gate() const { return gate_; }

private:
    const std::shared_ptr<DelegateGate> gate_;
};

} // namespace corvid
