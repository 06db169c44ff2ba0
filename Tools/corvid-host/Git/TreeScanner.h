#pragma once

#include "Platform/Unix/OwnedFd.h"
#include "Tools/corvid-host/Git/BadgeTree.h"
#include "Tools/corvid-host/Git/GitRepository.h"
#include "Tools/corvid-host/Git/IgnoreRules.h"
#include "Tools/corvid-host/Git/ReadPermission.h"

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace corvid {

/// Finds what is in a work tree and in which state. Folders that are ignored as a whole,
/// repositories within the tree, and git's own folder are not entered. One thread at a time.
///
/// A scan goes from folder to folder by descriptors, so that no path is too long for it, and takes
/// time in proportion to what is there, however deep it lies: only rules that name whole paths, and
/// files whose content has to be read and may be converted, cost more the deeper they are.
class TreeScanner {
public:
    /// So many folders are held open at most.
    static constexpr std::size_t kMostOpenFolders = 32;
    /// A file of ignore rules is read up to here; the lines after that are not seen.
    static constexpr std::size_t kMostRuleBytes = 16 * 1024 * 1024;

    /// Called with every folder before it is listed, so that no change after that is missed, and
    /// with a descriptor of it, which is valid during the call.
    using FolderVisitor = std::function<void(const std::string& folder, int descriptor)>;
    /// Called again and again while a scan goes on; what it throws ends the scan.
    using Interruption = std::function<void()>;

    /// `repository` is not owned.
    TreeScanner(
        GitRepository& repository, User user, FolderVisitor visitFolder,
        Interruption mayInterrupt = [] {});

    /// Several scans at one moment: they have the rules in common, and need not go twice to the
    /// same place.
    class Pass;

    /// What is at `path` and below it ("" is the whole tree), and what git knows of there though it
    /// is gone. Nothing when there is neither. Throws std::system_error when the system has no
    /// descriptors or memory for it.
    Scan scan(const std::string& path);

private:
    GitRepository& repository_;
    const User user_;
    const FolderVisitor visitFolder_;
    const Interruption mayInterrupt_;
};

class TreeScanner::Pass {
public:
    /// `scanner` is not owned.
    explicit Pass(TreeScanner& scanner);

    /// As TreeScanner::scan().
    Scan scan(const std::string& path);

private:
    /// The ignore rules that lie in one folder.
    struct FolderRules {
        std::size_t pathLength; ///< of the path of that folder
        IgnoreRules rules;
    };
    /// A folder on the way from the top to where the scan is.
    struct Folder {
        std::size_t pathLength = 0; ///< of its own path
        std::size_t rulesAbove = 0; ///< how many of `rules_` are not its own
        bool isIgnored = false;     ///< and all in it
        bool mayConvert = false;    ///< as GitRepository::Found has it
        OwnedFd descriptor = {};    ///< closed while it is far from where the scan is
        dev_t device = 0;
        ino_t inode = 0;
        std::vector<std::string> toEnter = {};
    };
    enum class Way { open, missing, blocked };

    Way goToFolder(const std::string& folder);
    OwnedFd openFolder(int parent, const char* name, struct stat& item) const;
    void push(OwnedFd descriptor, const struct stat& item, bool isIgnored);
    void pop();
    bool reopenLast(int below);
    bool isLeaf(const struct stat& item, const char* name, bool isIgnored) const;
    void addItem(const char* name, const struct stat& item, bool isIgnored);
    void addFolder();
    void list();
    void walk();
    bool isIgnored(bool isFolder) const;
    void addDeleted(const std::string& path);

    TreeScanner& scanner_;
    GitRepository& repository_;
    const GitRepository::Settings settings_;
    std::vector<IgnoreRules> commonRules_; ///< for the whole tree; the first counts most

    std::string path_; ///< where the scan is
    std::vector<Folder> folders_;
    std::vector<FolderRules> rules_; ///< of the folders on the way that have any

    // Of one scan.
    Scan scan_;
    std::size_t firstLevel_ = 0; ///< the place in `folders_` of what is on level 0
    std::unordered_set<const void*> found_;
    /// What is in the way of files that git knows of, each with a "/" at its end.
    std::set<std::string> blocked_;
};

} // namespace corvid
