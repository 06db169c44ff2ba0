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
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

/// The names of the items, so many as there have to be.
std::vector<std::string> namesOf(const std::string& folder, Listing which, std::size_t count) {
    std::vector<std::string> names;
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    listItems(folder, which, [&](const std::string& heard, const auto& items) {
        EXPECT_EQ(heard, folder);
        EXPECT_LE(items.size(), kListedAtOnce);
        for (const link::AskedItem& item : items) {
            names.push_back(item.name + (item.isFolder ? "/" : ""));
        }
        if (items.empty() || names.size() >= count) {
            g_main_loop_quit(loop);
        }
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
    EXPECT_THAT(namesOf(folder / "", Listing::first, 8),
                ElementsAre("link/", "z/", "9", "10", "A", "b", "dangling", "not UTF-8 \xff"));
    EXPECT_THAT(namesOf(folder / "", Listing::all, 9),
                UnorderedElementsAre("link/", "z/", "9", "10", "A", "b", "dangling",
                                     "not UTF-8 \xff", ".hidden"));
}

TEST(FolderListingTest, ALargeFolderIsListedInPortions) {
    const TemporaryFolder folder;
    std::vector<std::string> made;
    for (std::size_t i = 0; i < 2 * kListedAtOnce + 10; ++i) {
        made.push_back(std::to_string(i));
        touch(folder / made.back());
    }
    EXPECT_THAT(namesOf(folder / "", Listing::all, made.size()), UnorderedElementsAreArray(made));
    made.resize(kFirstItems);
    EXPECT_EQ(namesOf(folder / "", Listing::first, made.size()), made);
}

TEST(FolderListingTest, WhatCannotBeReadHasNoItems) {
    const TemporaryFolder folder;
    EXPECT_THAT(namesOf(folder / "missing", Listing::first, 1), ElementsAre());
    EXPECT_THAT(namesOf(folder / "missing", Listing::all, 1), ElementsAre());
}

} // namespace
} // namespace corvid::gtk
