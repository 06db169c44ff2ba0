#pragma once

#include "Extensions/Finder/CVMABadgeID.h"
#include "Tools/corvid-host/Git/FileState.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace corvid {

/// One item as a scan found it.
struct ScannedItem {
    std::string path; ///< relative to the top folder, without "/" at either end
    bool isFolder = false;
    FileState state; ///< of a folder, only `isUnreadable` counts
};

/// The badges of a tree of files. Paths are relative to its top folder, which is "". A folder
/// shows the badge that its items have in common, `syncedpartial` when they differ, and `none`
/// when it has no items; items without a badge do not count. A folder that cannot be read shows
/// `accessDenied`. A tracked file that was deleted counts as an item of its folder.
///
/// Changing one item costs no more than its depth. Not thread-safe.
class BadgeTree {
public:
    BadgeTree();
    ~BadgeTree();
    BadgeTree(BadgeTree&& other) noexcept;

    struct Change {
        std::string path;
        CVMABadgeID badge;
    };

    /// Adds the item, or changes it; the folders above it come into being.
    void set(const ScannedItem& item);

    /// Takes the item and all below it away.
    void remove(std::string_view path);

    /// Makes what is at `path` and below it equal to `items`, a scan of all that there is.
    void replace(std::string_view path, const std::vector<ScannedItem>& items);

    /// The items, folders included, whose badge has changed since the last call and which are
    /// still there, in no particular order.
    std::vector<Change> takeChanges();

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
    void setKind(Node& node, bool isFolder);
    void erase(Node& node);
    void sweep(Node& node);
    void update(Node& node);
    void visitFiles(
        const Node& node, std::string& path,
        const std::function<void(const std::string& path, const FileState& state)>& visit) const;

    std::unique_ptr<Node> top_;
    std::uint64_t generation_ = 0;
    std::size_t fileCount_ = 0;
    /// The badge that each touched item had when the changes were last taken.
    std::unordered_map<Node*, CVMABadgeID> before_;
};

} // namespace corvid
