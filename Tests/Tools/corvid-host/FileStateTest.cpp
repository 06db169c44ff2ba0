#include "Tools/corvid-host/Git/FileState.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

FileState everything() {
    return {.isUnreadable = true,
            .isConflicted = true,
            .isChanged = true,
            .isStaged = true,
            .isCheckedOut = true,
            .isUntracked = true,
            .isIgnored = true};
}

TEST(FileState, firstStateThatHoldsGivesTheBadge) {
    FileState state = everything();
    EXPECT_EQ(badgeOf(state).rawValue(), "accessDenied");
    state.isUnreadable = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "error");
    state.isConflicted = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "inProgress");
    state.isChanged = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "finishedTransfer");
    state.isStaged = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "checkedOut");
    state.isCheckedOut = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "cloud");
    state.isUntracked = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "none");
    state.isIgnored = false;
    EXPECT_EQ(badgeOf(state).rawValue(), "synced");
}

} // namespace
} // namespace corvid
