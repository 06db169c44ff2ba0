#pragma once

#include "Extensions/Finder/CVMABadgeID.h"
#include "Tools/corvid-host/Git/FileState.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace corvid {

/// One item as a scan found it, in the folder that the scan found last on the level above.
struct ScannedItem {
    std::size_t level = 0; ///< below the path that was scanned, whose item is on level 0
    std::string name;      ///< empty on level 0
    bool isFolder = false;
    FileState state; ///< of a folder, only `isUnreadable` counts
};

/// All that there is at a path and below it.
struct Scan {
    /// A folder comes before what is in it. Empty when nothing is on disk.
    std::vector<ScannedItem> items;

    struct Deleted {
        std::string path; ///< relative to the top folder
        FileState state;
    };
    /// What git knows of there though it is gone.
    std::vector<Deleted> deleted;

    bool isEmpty() const { return items.empty() && deleted.empty(); }
};

/// The badges of a tree of files. Paths are relative to its top folder, which is "". A folder
/// shows the badge that its items have in common, `syncedpartial` when they differ, and `none`
/// when it has no items; items without a badge do not count. A folder that cannot be read shows
/// `accessDenied`. A tracked file that was deleted counts as an item of its folder.
///
/// An item takes memory for its name, not for its path. Changing one item costs no more than its
/// depth, and nothing here calls itself for each level. Not thread-safe.
class BadgeTree {
public:
    BadgeTree();
    ~BadgeTree();
    BadgeTree(BadgeTree&& other) noexcept;

    struct Change {
        std::string path;
        CVMABadgeID badge;
    };
    struct Changes {
        std::size_t count = 0;         ///< of all that have changed
        std::optional<Change> example; ///< one of all
        std::vector<Change> shown;     ///< those that somebody sees, in no particular order
    };

    /// Adds the item at `path`, or changes it; the folders above it come into being.
    void set(std::string_view path, bool isFolder, const FileState& state);

    /// Takes the item and all below it away.
    void remove(std::string_view path);

    /// Makes what is at `path` and below it equal to `scan`.
    void replace(std::string_view path, const Scan& scan);

    /// The items, folders included, whose badge has changed since the last call and which are
    /// still there; those of them that lie in one of `shownFolders` with their paths. (A change
    /// deep down may change every folder above it, and each has a long path.)
    Changes takeChanges(const std::set<std::string>& shownFolders);

    /// `none` for what is not in the tree.
    CVMABadgeID badge(std::string_view path) const;

    bool contains(std::string_view path) const { return find(path) != nullptr; }

    /// Calls `visit` for the file at `path`, or for every file below the folder there.
    void forEachFile(
        std::string_view path,
        const std::function<void(const std::string& path, const FileState& state)>& visit) const;

    std::size_t fileCount() const { return fileCount_; }

private:
    struct Node;

    Node* find(std::string_view path) const;
    Node& make(std::string_view path);
    Node& child(Node& parent, std::string_view name);
    void assign(Node& node, bool isFolder, const FileState& state);
    void setKind(Node& node, bool isFolder);
    void erase(Node& node);
    void forget(std::unique_ptr<Node> node);
    void sweep(Node& top);
    void update(Node& node);

    std::unique_ptr<Node> top_;
    std::uint64_t generation_ = 0;
    std::size_t fileCount_ = 0;
    /// The badge that each touched item had when the changes were last taken.
    std::unordered_map<Node*, CVMABadgeID> before_;
};

} // namespace corvid
