#include "Tools/corvid-host/Git/GitMenu.h"

namespace corvid {

namespace {

hostkit::MenuItem entry(const char* title, const char* action, bool isEnabled = true) {
    hostkit::MenuItem item;
    item.title = title;
    item.action = action;
    item.isEnabled = isEnabled;
    return item;
}

} // namespace

bool canStage(const FileState& state) {
    return state.isChanged || state.isUntracked || state.isConflicted;
}

bool canUnstage(const FileState& state) {
    return state.isStaged;
}

bool hasChanges(const FileState& state) {
    return state.isChanged || state.isStaged || state.isConflicted;
}

bool canCheckOut(const FileState& state) {
    return !state.isUntracked && !state.isIgnored && !state.isConflicted && !state.isCheckedOut &&
           state.isOnDisk;
}

bool canCheckIn(const FileState& state) {
    return state.isCheckedOut;
}

void GitSelection::add(const FileState& state) {
    hasKnownFiles |= !state.isIgnored;
    canStage |= corvid::canStage(state);
    canUnstage |= corvid::canUnstage(state);
    hasChanges |= corvid::hasChanges(state);
    canCheckOut |= corvid::canCheckOut(state);
    canCheckIn |= corvid::canCheckIn(state);
}

std::vector<hostkit::MenuItem> gitMenu(const GitSelection& selection, bool isReadOnly) {
    std::vector<hostkit::MenuItem> menu;
    if (selection.hasKnownFiles) {
        if (!isReadOnly) {
            menu.push_back(entry("Stage", kStageAction, selection.canStage));
            menu.push_back(entry("Unstage", kUnstageAction, selection.canUnstage));
            menu.push_back(hostkit::MenuItem::separator());
        }
        menu.push_back(entry("Show Changes", kShowChangesAction, selection.hasChanges));
        if (!isReadOnly && selection.canCheckOut) {
            menu.push_back(entry("Mark as Checked Out", kCheckOutAction));
        }
        if (!isReadOnly && selection.canCheckIn) {
            menu.push_back(entry("Check In", kCheckInAction));
        }
        menu.push_back(hostkit::MenuItem::separator());
    }
    hostkit::MenuItem copy;
    copy.title = "Copy";
    copy.submenu = {entry("Path", kCopyPathAction),
                    entry("Path in Repository", kCopyRepositoryPathAction)};
    menu.push_back(copy);
    return menu;
}

} // namespace corvid
