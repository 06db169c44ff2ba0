#include "Tools/corvid-host/Git/TreeWatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <stdlib.h>

namespace corvid {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TreeWatcherTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "corvid-watch-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        top_ = name;
    }
    void TearDown() override { fs::remove_all(top_); }

    void write(const std::string& path) const { std::ofstream(top_ / path) << "x"; }

    // Events are there as soon as the call that makes them has returned.
    static std::set<std::string> readFrom(TreeWatcher& watcher) {
        std::set<std::string> paths;
        watcher.read(paths);
        return paths;
    }

    fs::path top_;
};

TEST_F(TreeWatcherTest, namesWhatCameChangedAndWent) {
    fs::create_directory(top_ / "sub");
    TreeWatcher watcher(top_);
    watcher.watch("");
    watcher.watch("sub");
    EXPECT_THAT(readFrom(watcher), IsEmpty());
    write("a");
    write("sub/b");
    EXPECT_THAT(readFrom(watcher), ElementsAre("a", "sub/b"));
    fs::permissions(top_ / "a", fs::perms::none);
    EXPECT_THAT(readFrom(watcher), ElementsAre("a"));
    fs::rename(top_ / "a", top_ / "sub/c");
    EXPECT_THAT(readFrom(watcher), ElementsAre("a", "sub/c"));
    fs::remove(top_ / "sub/c");
    EXPECT_THAT(readFrom(watcher), ElementsAre("sub/c"));
}

TEST_F(TreeWatcherTest, folderThatMovedIsKnownByItsNewName) {
    fs::create_directories(top_ / "a/deep");
    fs::create_directories(top_ / "a-b");
    TreeWatcher watcher(top_);
    for (const char* folder : {"", "a", "a/deep", "a-b"}) {
        watcher.watch(folder);
    }
    fs::rename(top_ / "a", top_ / "b");
    EXPECT_THAT(readFrom(watcher), ElementsAre("a", "b"));
    watcher.watch("b");
    watcher.watch("b/deep");
    write("b/deep/x");
    write("a-b/y");
    EXPECT_THAT(readFrom(watcher), ElementsAre("a-b/y", "b/deep/x"));
}

TEST_F(TreeWatcherTest, folderMadeAgainIsWatchedAgain) {
    fs::create_directory(top_ / "a");
    TreeWatcher watcher(top_);
    watcher.watch("");
    watcher.watch("a");
    fs::remove(top_ / "a");
    fs::create_directory(top_ / "a");
    watcher.watch("a");
    EXPECT_THAT(readFrom(watcher), Contains("a"));
    write("a/x");
    EXPECT_THAT(readFrom(watcher), ElementsAre("a/x"));
}

TEST_F(TreeWatcherTest, missingFolderIsLeftOut) {
    TreeWatcher watcher(top_);
    watcher.watch("nowhere");
    EXPECT_FALSE(watcher.isIncomplete());
    EXPECT_THAT(readFrom(watcher), IsEmpty());
}

} // namespace
} // namespace corvid
