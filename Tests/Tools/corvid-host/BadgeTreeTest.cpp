#include "Tools/corvid-host/Git/BadgeTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace corvid {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const FileState kSynced{};
const FileState kChanged{.isChanged = true};
const FileState kUntracked{.isUntracked = true};
const FileState kIgnored{.isIgnored = true};

struct Item {
    std::string path;
    bool isFolder = false;
    FileState state;
};

Item file(const std::string& path, const FileState& state) {
    return {path, false, state};
}

Item folder(const std::string& path) {
    return {path, true, {}};
}

void set(BadgeTree& tree, const Item& item) {
    tree.set(item.path, item.isFolder, item.state);
}

/// A scan of `path` that found the items, which come in the order of a walk.
Scan scanOf(const std::string& path, const std::vector<Item>& items) {
    Scan scan;
    for (const Item& item : items) {
        const std::string below =
            item.path.substr(std::min(item.path.size(), path.empty() ? 0 : path.size() + 1));
        const auto slashes = static_cast<std::size_t>(std::ranges::count(below, '/'));
        scan.items.push_back({below.empty() ? 0 : slashes + 1, below.substr(below.rfind('/') + 1),
                              item.isFolder, item.state});
    }
    return scan;
}

std::string_view badge(const BadgeTree& tree, std::string_view path) {
    return tree.badge(path).rawValue();
}

std::vector<std::string> taken(BadgeTree& tree) {
    // Every folder of these tests is on the screen.
    const BadgeTree::Changes changes =
        tree.takeChanges({"", "a", "a/b", "a/n", "c", "d0", "d1", "d2"});
    std::vector<std::string> texts;
    for (const BadgeTree::Change& change : changes.shown) {
        texts.push_back(change.path + " " + std::string(change.badge.rawValue()));
    }
    EXPECT_EQ(changes.count, texts.size());
    return texts;
}

TEST(BadgeTree, folderShowsWhatItsItemsHaveInCommon) {
    BadgeTree tree;
    EXPECT_EQ(badge(tree, ""), "none");
    EXPECT_EQ(badge(tree, "nowhere"), "none");
    set(tree, folder("a"));
    EXPECT_EQ(badge(tree, "a"), "none");
    set(tree, file("a/b/c", kSynced));
    EXPECT_EQ(badge(tree, "a/b"), "synced");
    EXPECT_EQ(badge(tree, "a"), "synced");
    set(tree, file("a/d", kChanged));
    EXPECT_EQ(badge(tree, "a"), "syncedpartial");
    EXPECT_EQ(badge(tree, "a/b"), "synced");
    set(tree, file("a/b/c", kChanged));
    EXPECT_EQ(badge(tree, "a"), "inProgress");
    tree.remove("a/d");
    tree.remove("a/b/c");
    EXPECT_EQ(badge(tree, "a"), "none");
    EXPECT_TRUE(tree.contains("a/b"));
}

TEST(BadgeTree, whatHasNoBadgeDoesNotCount) {
    BadgeTree tree;
    set(tree, file("a/ignored", kIgnored));
    EXPECT_EQ(badge(tree, "a"), "none");
    set(tree, file("a/unreadable", {.isUnreadable = true, .isIgnored = true}));
    EXPECT_EQ(badge(tree, "a/unreadable"), "accessDenied");
    EXPECT_EQ(badge(tree, "a"), "none");
    set(tree, folder("a/empty"));
    set(tree, file("a/x", kSynced));
    EXPECT_EQ(badge(tree, "a"), "synced");
}

TEST(BadgeTree, unreadableFolderHasThatBadgeWhateverIsInIt) {
    BadgeTree tree;
    set(tree, {"a/closed", true, {.isUnreadable = true}});
    EXPECT_EQ(badge(tree, "a/closed"), "accessDenied");
    EXPECT_EQ(badge(tree, "a"), "accessDenied");
    set(tree, folder("a/closed"));
    EXPECT_EQ(badge(tree, "a/closed"), "none");
}

TEST(BadgeTree, deletedFileCountsButIsNotReported) {
    BadgeTree tree;
    set(tree, file("a/x", kSynced));
    set(tree, file("a/y", kSynced));
    tree.takeChanges({});
    set(tree, file("a/y", {.isChanged = true, .isOnDisk = false}));
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a syncedpartial"));
}

TEST(BadgeTree, reportsWhatDiffersFromTheLastTime) {
    BadgeTree tree;
    set(tree, file("a/x", kSynced));
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a synced", "a/x synced"));
    EXPECT_THAT(taken(tree), IsEmpty());
    set(tree, file("a/x", kChanged));
    set(tree, file("a/x", kSynced));
    EXPECT_THAT(taken(tree), IsEmpty());
    set(tree, file("a/x", kUntracked));
    tree.remove("a/x");
    EXPECT_THAT(taken(tree), UnorderedElementsAre("a none"));
    set(tree, file("a/x", kIgnored));
    EXPECT_THAT(taken(tree), IsEmpty());
    EXPECT_EQ(tree.fileCount(), 1U);
}

TEST(BadgeTree, replaceTouchesNothingBesides) {
    BadgeTree tree;
    tree.replace("",
                 scanOf("", {folder(""), folder("a"), file("a/x", kSynced), file("a/y", kSynced),
                             file("ab", kChanged), folder("c"), file("c/z", kSynced)}));
    tree.takeChanges({});
    tree.replace("a", scanOf("a", {folder("a"), file("a/y", kChanged), folder("a/n"),
                                   file("a/n/m", kUntracked)}));
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
    set(tree, file("a", kChanged));
    set(tree, file("a/x", kSynced));
    EXPECT_EQ(badge(tree, "a"), "synced");
    EXPECT_EQ(tree.fileCount(), 1U);
    set(tree, file("a", kUntracked));
    EXPECT_EQ(badge(tree, "a"), "cloud");
    EXPECT_FALSE(tree.contains("a/x"));
    EXPECT_EQ(tree.fileCount(), 1U);
}

TEST(BadgeTree, saysWhatIsShownAndCountsTheRest) {
    BadgeTree tree;
    set(tree, file("a/b/x", kSynced));
    set(tree, file("a/y", kSynced));
    tree.takeChanges({});
    set(tree, file("a/b/x", kChanged));
    const BadgeTree::Changes changes = tree.takeChanges({"a/b", "nowhere"});
    ASSERT_EQ(changes.shown.size(), 1U);
    EXPECT_EQ(changes.shown[0].path, "a/b/x");
    EXPECT_EQ(changes.count, 3U);
    ASSERT_TRUE(changes.example);
    EXPECT_EQ(tree.takeChanges({"a/b"}).count, 0U);
}

TEST(BadgeTree, aDeletedFileOfAScanIsNotOnDisk) {
    BadgeTree tree;
    Scan scan = scanOf("", {folder(""), file("x", kSynced)});
    scan.deleted.push_back({"gone/y", {.isChanged = true, .isOnDisk = false}});
    tree.replace("", scan);
    EXPECT_EQ(badge(tree, "gone"), "inProgress");
    tree.replace("gone/y", {});
    EXPECT_EQ(badge(tree, "gone"), "none");
}

// A stack of calls, one for each level, would not do, nor would a path for each.
TEST(BadgeTree, depthCostsNoMoreThanWidth) {
    constexpr std::size_t kDepth = 50'000;
    BadgeTree tree;
    Scan scan;
    for (std::size_t level = 0; level < kDepth; ++level) {
        scan.items.push_back({level, "d", true, {}});
    }
    scan.items.push_back({kDepth, "leaf", false, kSynced});
    tree.replace("", scan);
    std::string path = "d";
    for (std::size_t level = 2; level < kDepth; ++level) {
        path += "/d";
    }
    EXPECT_EQ(badge(tree, "d"), "synced");
    EXPECT_EQ(badge(tree, path), "synced");
    tree.takeChanges({});
    Scan changed;
    changed.items.push_back({0, "", false, kChanged});
    tree.replace(path + "/leaf", changed);
    EXPECT_EQ(badge(tree, "d"), "inProgress");
    const BadgeTree::Changes changes = tree.takeChanges({path});
    EXPECT_EQ(changes.count, kDepth);
    ASSERT_EQ(changes.shown.size(), 1U);
    EXPECT_EQ(changes.shown[0].path, path + "/leaf");
    std::size_t files = 0;
    tree.forEachFile("", [&](const std::string&, const FileState&) { ++files; });
    EXPECT_EQ(files, 1U);
    tree.remove("d/d");
    EXPECT_EQ(tree.fileCount(), 0U);
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
            set(tree, file(path, state));
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
