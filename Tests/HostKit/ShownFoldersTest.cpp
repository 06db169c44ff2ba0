#include "HostKit/ShownFolders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvid::hostkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ShownFolders, countsWhoShowsAFolder) {
    ShownFolders shown;
    EXPECT_TRUE(shown.begin("/a"));
    EXPECT_FALSE(shown.begin("/a"));
    EXPECT_FALSE(shown.end("/a"));
    EXPECT_TRUE(shown.contains("/a"));
    EXPECT_TRUE(shown.end("/a"));
    EXPECT_FALSE(shown.contains("/a"));
    EXPECT_TRUE(shown.begin("/a"));
}

TEST(ShownFolders, endWithoutBeginChangesNothing) {
    ShownFolders shown;
    EXPECT_FALSE(shown.end("/a"));
    EXPECT_TRUE(shown.begin("/a"));
}

TEST(ShownFolders, clearSaysWhatWasShown) {
    ShownFolders shown;
    shown.begin("/b");
    shown.begin("/a");
    shown.begin("/a");
    EXPECT_THAT(shown.clear(), ElementsAre("/a", "/b"));
    EXPECT_THAT(shown.clear(), IsEmpty());
    EXPECT_FALSE(shown.contains("/a"));
}

} // namespace
} // namespace corvid::hostkit
