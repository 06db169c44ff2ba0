#include "Tools/corvid-host/Git/BadgeTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace corvid {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const FileState kSynced{};
const FileState kChanged{.isChanged = true};
const FileState kUntracked{.isUntracked = true};
const FileState kIgnored{.isIgnored = true};

ScannedItem file(const std::string& path, const FileState& state) {
    return {path, false, state};
}

ScannedItem folder(const std::string& path) {
    return {path, true, {}};
}

std::string_view badge(const BadgeTree& tree, std::string_view path) {
    return tree.badge(path).rawValue();
}

std::vector<std::string> taken(BadgeTree& tree) {
    std::vector<std::string> texts;
    for (const BadgeTree::Change& change : tree.takeChanges()) {
        texts.push_back(change.path + " " + std::string(change.badge.rawValue()));
    }
    return texts;
}

TEST(BadgeTree, folderShowsWhatItsItemsHaveInCommon) {
    BadgeTree tree;
    EXPECT_EQ(badge(tree, ""), "none");
    EXPECT_EQ(badge(tree, "nowhere"), "none");
    tree.set(folder("a"));
    EXPECT_EQ(badge(tree, "a"), "none");
    tree.set(file("a/b/c", kSynced));
    EXPECT_EQ(badge(tree, "a/b"), "synced");
    EXPECT_EQ(badge(tree, "a"), "synced");
    tree.set(file("a/d", kChanged));
    EXPECT_EQ(badge(tree, "a"), "syncedpartial");
    EXPECT_EQ(badge(tree, "a/b"), "synced");
    tree.set(file("a/b/c", kChanged));
    EXPECT_EQ(badge(tree, "a"), "inProgress");
    tree.remove("a/d");
    tree.remove("a/b/c");
    EXPECT_EQ(badge(tree, "a"), "none");
    EXPECT_TRUE(tree.contains("a/b"));
}

TEST(BadgeTree, whatHasNoBadgeDoesNotCount) {
    BadgeTree tree;
    tree.set(file("a/ignored", kIgnored));
    EXPECT_EQ(badge(tree, "a"), "none");
    tree.set(file("a/unreadable", {.isUnreadable = true, .isIgnored = true}));
    EXPECT_EQ(badge(tree, "a/unreadable"), "accessDenied");
    EXPECT_EQ(badge(tree, "a"), "none");
    tree.set(folder("a/empty"));
    tree.set(file("a/x", kSynced));
    EXPECT_EQ(badge(tree, "a"), "synced");
}

TEST(BadgeTree, unreadableFolderHasThatBadgeWhateverIsInIt) {
    BadgeTree tree;
    tree.set({"a/closed", true, {.isUnreadable = true}});
    EXPECT_EQ(badge(tree, "a/closed"), "accessDenied");
    EXPECT_EQ(badge(tree, "a"), "accessDenied");
    tree.set(folder("a/closed"));
    EXPECT_EQ(badge(tree, "a/closed"), "none");
}

TEST(BadgeTree, deletedFileCountsButIsNotReported) {
    BadgeTree tree;
    tree.set(file("a/x", kSynced));
    tree.set(file("a/y", kSynced));
    tree.takeChanges();
    tree.set(file("a/y", {.isChanged = true, .isOnDisk = false}));
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a syncedpartial"));
}

TEST(BadgeTree, reportsWhatDiffersFromTheLastTime) {
    BadgeTree tree;
    tree.set(file("a/x", kSynced));
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a synced", "a/x synced"));
    EXPECT_THAT(taken(tree), IsEmpty());
    tree.set(file("a/x", kChanged));
    tree.set(file("a/x", kSynced));
    EXPECT_THAT(taken(tree), IsEmpty());
    tree.set(file("a/x", kUntracked));
    tree.remove("a/x");
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a none"));
    tree.set(file("a/x", kIgnored));
    EXPECT_THAT(taken(tree), IsEmpty());
    EXPECT_EQ(tree.fileCount(), 1U);
}

TEST(BadgeTree, replaceTouchesNothingBesides) {
    BadgeTree tree;
    tree.replace("", {folder("a"), file("a/x", kSynced), file("a/y", kSynced), file("ab", kChanged),
                      file("c/z", kSynced)});
    tree.takeChanges();
    tree.replace("a", {folder("a"), file("a/y", kChanged), file("a/n/m", kUntracked)});
    EXPECT_FALSE(tree.contains("a/x"));
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a syncedpartial", "a/y inProgress", "a/n cloud",
                                                  "a/n/m cloud"));
    tree.replace("c/z", {});
    EXPECT_FALSE(tree.contains("c/z"));
    EXPECT_EQ(badge(tree, "ab"), "inProgress");
    tree.replace("nowhere/at/all", {});
    EXPECT_FALSE(tree.contains("nowhere"));
    EXPECT_EQ(tree.fileCount(), 3U);
}

TEST(BadgeTree, fileAndFolderTakeEachOthersPlace) {
    BadgeTree tree;
    tree.set(file("a", kChanged));
    tree.set(file("a/x", kSynced));
    EXPECT_EQ(badge(tree, "a"), "synced");
    EXPECT_EQ(tree.fileCount(), 1U);
    tree.set(file("a", kUntracked));
    EXPECT_EQ(badge(tree, "a"), "cloud");
    EXPECT_FALSE(tree.contains("a/x"));
    EXPECT_EQ(tree.fileCount(), 1U);
}

// A model with no structure at all: files by path, folders judged afresh each time.
class Model {
public:
    std::map<std::string, FileState> files;

    CVMABadgeID folderBadge(const std::string& path) const {
        std::map<std::string, CVMABadgeID> items;
        const std::string prefix = path.empty() ? "" : path + "/";
        for (const auto& [name, state] : files) {
            if (!name.starts_with(prefix)) {
                continue;
            }
            const std::size_t end = name.find('/', prefix.size());
            if (end == std::string::npos) {
                items.insert_or_assign(name, badgeOf(state));
            } else if (!items.contains(name.substr(0, end))) {
                items.emplace(name.substr(0, end), folderBadge(name.substr(0, end)));
            }
        }
        CVMABadgeID common = CVMABadgeID::none;
        for (const auto& [name, itemBadge] : items) {
            if (itemBadge == CVMABadgeID::none) {
                continue;
            }
            if (common != CVMABadgeID::none && common != itemBadge) {
                return CVMABadgeID::syncedpartial;
            }
            common = itemBadge;
        }
        return common;
    }
};

TEST(BadgeTree, agreesWithAModelThatCountsAfresh) {
    std::mt19937 random(7);
    const FileState states[] = {kSynced, kChanged, kUntracked, kIgnored, {.isStaged = true}};
    BadgeTree tree;
    Model model;
    for (int step = 0; step < 800; ++step) {
        std::string path;
        for (unsigned long depth = 1 + random() % 3; depth > 0; --depth) {
            path += (path.empty() ? "d" : "/d") + std::to_string(random() % 3);
        }
        path += "/f" + std::to_string(random() % 3);
        if (random() % 4 == 0) {
            tree.remove(path);
            model.files.erase(path);
        } else {
            const FileState& state = states[random() % std::size(states)];
            tree.set(file(path, state));
            model.files[path] = state;
        }
        for (std::string above = path; !above.empty();) {
            const std::size_t slash = above.rfind('/');
            above = slash == std::string::npos ? "" : above.substr(0, slash);
            ASSERT_EQ(tree.badge(above).rawValue(), model.folderBadge(above).rawValue())
                << "after step " << step << " in \"" << above << "\"";
        }
    }
    EXPECT_EQ(tree.fileCount(), model.files.size());
}

} // namespace
} // namespace corvid
