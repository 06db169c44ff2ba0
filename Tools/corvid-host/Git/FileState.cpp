#include "Tools/corvid-host/Git/FileState.h"

namespace corvid {

CVMABadgeID badgeOf(const FileState& state) {
    if (state.isUnreadable) {
        return CVMABadgeID::accessDenied;
    }
    if (state.isConflicted) {
        return CVMABadgeID::error;
    }
    if (state.isChanged) {
        return CVMABadgeID::inProgress;
    }
    if (state.isStaged) {
        return CVMABadgeID::finishedTransfer;
    }
    if (state.isCheckedOut) {
        return CVMABadgeID::checkedOut;
    }
    if (state.isUntracked) {
        return CVMABadgeID::cloud;
    }
    if (state.isIgnored) {
        return CVMABadgeID::none;
    }
    return CVMABadgeID::synced;
}

} // namespace corvid
