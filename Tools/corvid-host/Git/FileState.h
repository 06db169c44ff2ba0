#pragma once

#include "Extensions/Finder/CVMABadgeID.h"

namespace corvid {

/// What git and the file system say of one file of a work tree.
struct FileState {
    bool isUnreadable = false; ///< by mode and owner, see mayRead()
    bool isConflicted = false;
    bool isChanged = false;    ///< the work tree differs from the index; a deleted file is changed
    bool isStaged = false;     ///< the index differs from HEAD
    bool isCheckedOut = false; ///< marked assume-unchanged or skip-worktree
    bool isUntracked = false;
    bool isIgnored = false;
    bool isOnDisk = true;

    friend bool operator==(const FileState&, const FileState&) = default;
};

/// The badge of a file: the first state of the table that holds.
CVMABadgeID badgeOf(const FileState& state);

} // namespace corvid
