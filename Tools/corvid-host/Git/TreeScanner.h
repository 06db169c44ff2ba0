#pragma once

#include "Tools/corvid-host/Git/BadgeTree.h"
#include "Tools/corvid-host/Git/GitRepository.h"
#include "Tools/corvid-host/Git/ReadPermission.h"

#include <functional>
#include <string>
#include <vector>

namespace corvid {

/// Finds what is in a work tree and in which state. Folders that are ignored as a whole,
/// repositories within the tree, and git's own folder are not entered. One thread at a time.
class TreeScanner {
public:
    /// Called with every folder before it is listed, so that no change after that is missed.
    using FolderVisitor = std::function<void(const std::string& folder)>;

    /// `repository` is not owned.
    TreeScanner(GitRepository& repository, User user, FolderVisitor visitFolder);

    /// What is at `path` and below it ("" is the whole tree), and what git knows of there though it
    /// is gone. Nothing when there is neither.
    std::vector<ScannedItem> scan(const std::string& path);

private:
    struct Scan;
    void add(Scan& scan, const std::string& path, const struct stat& item);
    void enter(Scan& scan, const std::string& folder);
    void addDeleted(Scan& scan, const std::string& path);
    bool isBelowFile(const std::string& path) const;
    std::string absolute(const std::string& path) const;

    GitRepository& repository_;
    const User user_;
    const FolderVisitor visitFolder_;
};

} // namespace corvid
