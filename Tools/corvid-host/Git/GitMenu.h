#pragma once

#include "Tools/corvid-host/Git/FileState.h"

#include <CorvidHostKit/MenuItem.h>

#include <vector>

namespace corvid {

/// What the files of a selection, those in selected folders included, allow to be done with them.
struct GitSelection {
    bool hasKnownFiles = false; ///< any that git does not ignore
    bool canStage = false;
    bool canUnstage = false;
    bool hasChanges = false;
    bool canCheckOut = false;
    bool canCheckIn = false;

    void add(const FileState& state);
};

/// Which files an action is for.
bool canStage(const FileState& state);
bool canUnstage(const FileState& state);
bool hasChanges(const FileState& state);
bool canCheckOut(const FileState& state);
bool canCheckIn(const FileState& state);

/// The names of the actions.
inline constexpr const char* kStageAction = "stage";
inline constexpr const char* kUnstageAction = "unstage";
inline constexpr const char* kShowChangesAction = "show-changes";
inline constexpr const char* kCheckOutAction = "check-out";
inline constexpr const char* kCheckInAction = "check-in";
inline constexpr const char* kCopyPathAction = "copy-path";
inline constexpr const char* kCopyRepositoryPathAction = "copy-path-in-repository";

/// The menu of a selection. What cannot be done with it is disabled; what has no meaning for it,
/// or is forbidden by `isReadOnly`, is absent.
std::vector<hostkit::MenuItem> gitMenu(const GitSelection& selection, bool isReadOnly);

} // namespace corvid
