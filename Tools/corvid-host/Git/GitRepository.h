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
/// without "/" at either end, in bytes. Members throw GitError. A pipe in the place of a file is
/// never waited for: it counts as a file that cannot be read (see PipeGuard.h). One thread at a
/// time.
class GitRepository {
public:
    /// Opens the repository whose work tree `folder` is in. Refuses a repository of another user
    /// that git is not told to trust, and one whose work tree lies elsewhere.
    explicit GitRepository(const std::string& folder);
    ~GitRepository();

    /// The top folder of the work tree, absolute, links resolved, without a "/" at the end.
    const std::string& workTree() const;
    /// The folder with HEAD and the index, and the one with the branches; mostly the same.
    const std::string& gitFolder() const;
    const std::string& commonFolder() const;

    /// Reads index and HEAD again; true when something has changed.
    bool reload();

    /// What git is told besides what lies in the folders of the work tree. Read afresh.
    struct Settings {
        bool ignoresCase = false;
        /// The files of ignore rules for the whole tree, absolute; the first counts most.
        std::vector<std::string> ignoreFiles;
        /// Content may be converted on its way into git although no folder has attributes.
        bool mayConvert = false;
    };
    Settings settings() const;

    /// A file (anything but a folder) as a walk through the tree found it. A repository within the
    /// work tree counts as a file.
    struct Found {
        const std::string& path;
        const struct stat& item; ///< as lstat(2) has it
        int folder;              ///< the folder that it is in, open
        const char* name;        ///< in that folder
        bool isIgnored;          ///< by the rules
        bool mayConvert;         ///< settings(), or a file of attributes above it, may convert it
    };
    /// What git says of a file.
    struct Known {
        FileState state; ///< `isUnreadable` is left to the caller
        /// The same for the same file as in forEachKnownFile(), until the next reload() or change
        /// of the index; null for a file that git knows not of.
        const void* identity = nullptr;
    };
    Known stateOf(const Found& file);

    /// The state of a file that git knows of and that is not on disk.
    FileState stateOfDeleted(const std::string& path) const;

    /// As Known::identity, of whatever is at `path`.
    const void* identityOf(const std::string& path) const;

    /// True when git knows of `path` as a submodule.
    bool isSubmodule(const std::string& path) const;

    /// True when the index holds something below `folder`.
    bool hasIndexedBelow(const std::string& folder) const;
    /// True when the index or HEAD does.
    bool hasKnownBelow(const std::string& folder) const;

    /// Calls `visit` for every file that the index or HEAD holds at `path` or below it; "" is the
    /// whole tree.
    void forEachKnownFile(
        const std::string& path,
        const std::function<void(const std::string& file, const void* identity)>& visit) const;

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
