#include "HostKit/ShownFolders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

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

TEST(ShownFolders, thoseBeyondTheBoundTakeNoMemoryAndMakeEveryFolderShown) {
    ShownFolders shown;
    for (std::size_t i = 0; i < ShownFolders::kMaxFolders; ++i) {
        ASSERT_TRUE(shown.begin("/" + std::to_string(i)));
    }
    EXPECT_FALSE(shown.contains("/beyond"));
    EXPECT_FALSE(shown.begin("/beyond"));
    EXPECT_FALSE(shown.begin("/further"));
    EXPECT_FALSE(shown.begin("/0")) << "counted as before";
    EXPECT_TRUE(shown.contains("/beyond"));
    EXPECT_TRUE(shown.contains("/never shown"));
    EXPECT_FALSE(shown.end("/beyond"));
    EXPECT_TRUE(shown.contains("/further"));
    EXPECT_FALSE(shown.end("/further"));
    EXPECT_FALSE(shown.contains("/further"));
    EXPECT_TRUE(shown.end("/1"));
    EXPECT_TRUE(shown.begin("/further"));
    EXPECT_EQ(shown.clear().size(), ShownFolders::kMaxFolders);
}

TEST(ShownFolders, longPathsAreBoundedTogether) {
    ShownFolders shown;
    const std::string name(ShownFolders::kMaxBytes / 4, 'x');
    for (const char* const folder : {"/a", "/b", "/c"}) {
        EXPECT_TRUE(shown.begin(folder + name));
    }
    EXPECT_FALSE(shown.begin("/d" + name));
    EXPECT_TRUE(shown.end("/a" + name));
    EXPECT_TRUE(shown.begin("/d" + name));
    shown.clear();
    EXPECT_FALSE(shown.contains("/d" + name));
}

} // namespace
} // namespace corvid::hostkit
