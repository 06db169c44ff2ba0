#include "Extensions/FileManagers/Gtk/FolderListing.h"
#include "Tests/Support/HeldCalls.h"
#include "Tests/Support/TemporaryFolder.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
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

/// Threads of this process. (Its folder of them cannot be read while that is what hangs.)
std::size_t threads() {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::size_t count = 0;
    while (status >> word && word != "Threads:") {
    }
    status >> count;
    return count;
}

TEST(FolderListingTest, ADiskThatDoesNotAnswerHoldsUpAFewThreads) {
    const TemporaryFolder folder;
    constexpr std::size_t kFolders = 3 * (kMaxListings + kMaxWaitingListings);
    bool isPossible = true;
    std::thread([&] {
        // What a thread of this one's reads a folder with.
        auto held = std::make_unique<HeldCalls>(SYS_getdents64);
        isPossible = held->work();
        if (!isPossible) {
            return;
        }
        const std::size_t threadsBefore = threads();
        std::vector<std::string> heard;
        const auto list = [&](std::size_t number) {
            const std::string name = folder / std::to_string(number);
            std::filesystem::create_directory(name);
            listItems(name, Listing::all, [&](const std::string& listed, const auto& /*items*/) {
                heard.push_back(std::filesystem::path(listed).filename());
            });
        };
        for (std::size_t i = 0; i < kMaxListings; ++i) {
            list(0); // of one folder, which needs one thread
        }
        for (std::size_t i = 1; i < kFolders; ++i) {
            list(i);
        }
        for (std::size_t i = 0; i < kMaxListings; ++i) {
            EXPECT_TRUE(held->waitForOne());
        }
        EXPECT_LE(threads(), threadsBefore + kMaxListings);
        // The network is back, with an error: those that were begun end, and those that waited.
        held.reset();
        while (heard.size() < kMaxListings + kMaxWaitingListings) {
            g_main_context_iteration(nullptr, TRUE);
        }
        EXPECT_THAT(heard, ::testing::Contains(std::to_string(kFolders - 1)));
        EXPECT_THAT(heard, ::testing::Not(::testing::Contains(std::to_string(kMaxListings + 1))));
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        EXPECT_EQ(heard.size(), kMaxListings + kMaxWaitingListings);
    }).join();
    if (!isPossible) {
        GTEST_SKIP() << "the system does not let calls be held up";
    }
}

TEST(FolderListingTest, AProcessEndsWhileADiskDoesNotAnswer) {
    const TemporaryFolder folder;
    EXPECT_EXIT(
        {
            static HeldCalls* held = nullptr; // to the very end
            std::thread([&] {
                held = new HeldCalls(SYS_getdents64);
                listItems(folder / "", Listing::all, [](const auto&, const auto&) {});
                if (held->work() && !held->waitForOne()) {
                    std::abort();
                }
            }).join();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace corvid::gtk
