#include "Extensions/FileManagers/Gtk/FolderListing.h"
#include "Tests/Support/TemporaryFolder.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace corvid::gtk {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> namesOf(const std::string& folder) {
    std::vector<std::string> names;
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    listFirstItems(folder, [&](const std::string& heard, const auto& items) {
        EXPECT_EQ(heard, folder);
        for (const link::AskedItem& item : items) {
            names.push_back(item.name + (item.isFolder ? "/" : ""));
        }
        g_main_loop_quit(loop);
    });
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return names;
}

void touch(const std::filesystem::path& path) {
    EXPECT_TRUE(std::ofstream(path));
}

TEST(FolderListingTest, SubfoldersComeBeforeFilesAndBothByName) {
    const TemporaryFolder folder;
    for (const char* const name : {"10", "9", "b", "A", ".hidden", "not UTF-8 \xff"}) {
        touch(folder / name);
    }
    std::filesystem::create_directory(folder / "z");
    std::filesystem::create_directory_symlink(folder / "z", folder / "link");
    std::filesystem::create_symlink(folder / "nowhere", folder / "dangling");
    EXPECT_THAT(namesOf(folder / ""),
                ElementsAre("link/", "z/", "9", "10", "A", "b", "dangling", "not UTF-8 \xff"));
}

TEST(FolderListingTest, OnlyTheFirstOfALargeFolderAreListed) {
    const TemporaryFolder folder;
    for (std::size_t i = 0; i < kFirstItems + 10; ++i) {
        touch(folder / std::to_string(i));
    }
    const std::vector<std::string> names = namesOf(folder / "");
    ASSERT_EQ(names.size(), kFirstItems);
    EXPECT_EQ(names.front(), "0");
    EXPECT_EQ(names.back(), std::to_string(kFirstItems - 1));
}

TEST(FolderListingTest, WhatCannotBeReadHasNoItems) {
    const TemporaryFolder folder;
    EXPECT_THAT(namesOf(folder / "missing"), ElementsAre());
}

} // namespace
} // namespace corvid::gtk
