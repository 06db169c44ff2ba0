#pragma once

#include "Tools/corvid-host/Git/FileState.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace corvid {

/// What git refused to do, with the reason and, where there is one, the remedy.
class GitError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A git repository with a work tree, on libgit2. Paths are relative to the top of the work tree,
/// without "/" at either end, in bytes. Members throw GitError. One thread at a time.
class GitRepository {
public:
    /// Opens the repository whose work tree `folder` is in.
    explicit GitRepository(const std::string& folder);
    ~GitRepository();

    /// The top folder of the work tree, absolute, links resolved, without a "/" at the end.
    const std::string& workTree() const;
    /// The folder with HEAD and the index, and the one with the branches; mostly the same.
    const std::string& gitFolder() const;
    const std::string& commonFolder() const;

    /// Reads index and HEAD again; true when something has changed.
    bool reload();

    /// The state of the file (anything but a folder) that is at `path`, of which lstat(2) says
    /// `item`; `isUnreadable` is left to the caller. A repository within the work tree counts as
    /// a file.
    FileState stateOf(const std::string& path, const struct stat& item);

    /// The state of a file that git knows of and that is not on disk.
    FileState stateOfDeleted(const std::string& path) const;

    /// True when `folder` is a repository of its own: a submodule, or one that git knows not of.
    bool isRepository(const std::string& folder) const;

    /// True when `folder` is ignored and nothing below it is tracked, so that nobody need look.
    bool isIgnoredFolder(const std::string& folder) const;

    /// Calls `visit` for every file that the index or HEAD holds at `path` or below it; "" is the
    /// whole tree.
    void forEachKnownFile(const std::string& path,
                          const std::function<void(const std::string& file)>& visit) const;

    /// Puts the files as they are on disk, deletions included, into the index.
    void stage(const std::vector<std::string>& paths);
    /// Puts the files as HEAD has them into the index.
    void unstage(const std::vector<std::string>& paths);
    /// Marks tracked files assume-unchanged, or takes that mark and skip-worktree away.
    void setCheckedOut(const std::vector<std::string>& paths, bool isCheckedOut);

    /// The differences between HEAD and the work tree for the files, as a unified diff.
    std::string changes(const std::vector<std::string>& paths) const;

private:
    struct Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace corvid
