#include "Tools/corvid-host/Git/TreeScanner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace corvid {

namespace {

constexpr const char* kRuleFile = ".gitignore";
constexpr const char* kAttributeFile = ".gitattributes";

/// So many items are looked at between two calls of the interruption.
constexpr std::size_t kItemsAtATime = 256;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string_view nameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

/// A lack that says nothing of the file: a scan that went on would give wrong badges.
void throwIfLacking(int error) {
    if (error == EMFILE || error == ENFILE || error == ENOMEM) {
        throw std::system_error(error, std::generic_category(),
                                "the folders cannot be read; close other programs");
    }
}

/// The rules in the file `name` of `folder`; none when it is not a regular file that can be read.
/// `follow` is O_NOFOLLOW for files of a work tree, which may not lead out of it.
IgnoreRules readRules(int folder, const char* name, int follow, bool ignoresCase) {
    const OwnedFd file(openat(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | follow));
    struct stat item{};
    if (!file) {
        throwIfLacking(errno);
        return {};
    }
    if (fstat(file.get(), &item) != 0 || !S_ISREG(item.st_mode)) {
        return {};
    }
    std::string text;
    std::array<char, 16384> buffer{};
    while (text.size() < TreeScanner::kMostRuleBytes) {
        const ssize_t count = read(file.get(), buffer.data(), buffer.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            break;
        }
        text.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return IgnoreRules::parse(text, ignoresCase);
}

} // namespace

TreeScanner::TreeScanner(GitRepository& repository, User user, FolderVisitor visitFolder,
                         Interruption mayInterrupt)
    : repository_(repository), user_(std::move(user)), visitFolder_(std::move(visitFolder)),
      mayInterrupt_(std::move(mayInterrupt)) {}

Scan TreeScanner::scan(const std::string& path) {
    return Pass(*this).scan(path);
}

TreeScanner::Pass::Pass(TreeScanner& scanner)
    : scanner_(scanner), repository_(scanner.repository_), settings_(repository_.settings()) {
    for (const std::string& file : settings_.ignoreFiles) {
        commonRules_.push_back(readRules(AT_FDCWD, file.c_str(), 0, settings_.ignoresCase));
    }
}

Scan TreeScanner::Pass::scan(const std::string& path) {
    scan_ = {};
    found_.clear();
    blocked_.clear();
    const Way way = goToFolder(parentOf(path));
    if (way == Way::blocked) {
        return {};
    }
    if (way == Way::open && path.empty()) {
        firstLevel_ = 0;
        addFolder();
        list();
        walk();
    } else if (way == Way::open) {
        firstLevel_ = folders_.size();
        const std::string name(nameOf(path));
        path_ = path;
        struct stat item{};
        if (fstatat(folders_.back().descriptor.get(), name.c_str(), &item, AT_SYMLINK_NOFOLLOW) ==
            0) {
            const bool ignored = isIgnored(S_ISDIR(item.st_mode));
            if (!S_ISDIR(item.st_mode) || isLeaf(item, name.c_str(), ignored)) {
                addItem(name.c_str(), item, ignored);
            } else {
                folders_.back().toEnter.push_back(name);
            }
        }
        path_.resize(folders_.back().pathLength);
        walk();
    }
    repository_.forEachKnownFile(path, [&](const std::string& file, const void* identity) {
        if (!found_.contains(identity)) {
            addDeleted(file);
        }
    });
    return std::exchange(scan_, {});
}

/// Makes `folder` the last of `folders_`, from the top or from where the last scan was.
TreeScanner::Pass::Way TreeScanner::Pass::goToFolder(const std::string& folder) {
    if (!folders_.empty() && folders_.back().descriptor && path_ == folder) {
        return Way::open;
    }
    folders_.clear();
    rules_.clear();
    path_.clear();
    struct stat item{};
    OwnedFd top = openFolder(AT_FDCWD, repository_.workTree().c_str(), item);
    if (!top) {
        return Way::missing;
    }
    push(std::move(top), item, false);
    for (std::size_t at = 0; at < folder.size();) {
        const std::size_t end = std::min(folder.find('/', at), folder.size());
        const std::string name = folder.substr(at, end - at);
        const int parent = folders_.back().descriptor.get();
        path_ = folder.substr(0, end);
        at = end + 1;
        OwnedFd next = openFolder(parent, name.c_str(), item);
        if (!next) {
            const bool isThere = fstatat(parent, name.c_str(), &item, AT_SYMLINK_NOFOLLOW) == 0;
            folders_.clear();
            return isThere && !S_ISDIR(item.st_mode) ? Way::blocked : Way::missing;
        }
        push(std::move(next), item, isIgnored(true));
    }
    return Way::open;
}

OwnedFd TreeScanner::Pass::openFolder(int parent, const char* name, struct stat& item) const {
    const int follow = parent == AT_FDCWD ? 0 : O_NOFOLLOW;
    OwnedFd folder(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | follow));
    if (!folder) {
        throwIfLacking(errno);
    } else if (fstat(folder.get(), &item) != 0) {
        folder.reset();
    }
    return folder;
}

/// The opened folder at `path_` is the last one from here on.
void TreeScanner::Pass::push(OwnedFd descriptor, const struct stat& item, bool isIgnored) {
    Folder folder{path_.size(), rules_.size()};
    folder.isIgnored = isIgnored;
    struct stat attributes{};
    folder.mayConvert =
        (folders_.empty() ? settings_.mayConvert : folders_.back().mayConvert) ||
        fstatat(descriptor.get(), kAttributeFile, &attributes, AT_SYMLINK_NOFOLLOW) == 0;
    folder.device = item.st_dev;
    folder.inode = item.st_ino;
    if (!isIgnored) {
        IgnoreRules rules =
            readRules(descriptor.get(), kRuleFile, O_NOFOLLOW, settings_.ignoresCase);
        if (!rules.isEmpty()) {
            rules_.push_back({path_.size(), std::move(rules)});
        }
    }
    folder.descriptor = std::move(descriptor);
    folders_.push_back(std::move(folder));
    if (folders_.size() > kMostOpenFolders) {
        folders_[folders_.size() - 1 - kMostOpenFolders].descriptor.reset();
    }
}

/// Leaves the last folder for the one above it.
void TreeScanner::Pass::pop() {
    const Folder left = std::move(folders_.back());
    folders_.pop_back();
    rules_.erase(rules_.begin() + static_cast<std::ptrdiff_t>(left.rulesAbove), rules_.end());
    Folder& folder = folders_.back();
    path_.resize(folder.pathLength);
    if (!folder.toEnter.empty() && !folder.descriptor && !reopenLast(left.descriptor.get())) {
        // It was moved or removed meanwhile, of which the watcher tells.
        folder.toEnter.clear();
    }
}

/// Opens the last folder again, from the one `below` it if that is there still, else by its path.
bool TreeScanner::Pass::reopenLast(int below) {
    Folder& folder = folders_.back();
    struct stat item{};
    const auto isSame = [&] { return item.st_dev == folder.device && item.st_ino == folder.inode; };
    folder.descriptor = openFolder(below, "..", item);
    if (folder.descriptor && isSame()) {
        return true;
    }
    folder.descriptor = openFolder(AT_FDCWD, repository_.workTree().c_str(), item);
    for (std::size_t i = 1; folder.descriptor && i < folders_.size(); ++i) {
        const std::size_t start = folders_[i - 1].pathLength;
        const std::string name(
            nameOf(std::string_view(path_).substr(start, folders_[i].pathLength - start)));
        folder.descriptor = openFolder(folder.descriptor.get(), name.c_str(), item);
    }
    return folder.descriptor && isSame();
}

/// True when the folder at `path_` is not entered.
bool TreeScanner::Pass::isLeaf(const struct stat& item, const char* name, bool isIgnored) const {
    if (!mayRead(item, scanner_.user_) || repository_.isSubmodule(path_) ||
        (isIgnored && !repository_.hasIndexedBelow(path_))) {
        return true;
    }
    struct stat inside{};
    return fstatat(folders_.back().descriptor.get(), (std::string(name) + "/.git").c_str(), &inside,
                   AT_SYMLINK_NOFOLLOW) == 0;
}

/// Adds the item at `path_`, which is `name` in the last folder, with nothing below it.
void TreeScanner::Pass::addItem(const char* name, const struct stat& item, bool isIgnored) {
    const int parent = folders_.back().descriptor.get();
    bool isFolder = S_ISDIR(item.st_mode);
    if (isFolder) {
        struct stat inside{};
        isFolder = !repository_.isSubmodule(path_) &&
                   fstatat(parent, (std::string(name) + "/.git").c_str(), &inside,
                           AT_SYMLINK_NOFOLLOW) != 0;
    }
    const GitRepository::Known known =
        repository_.stateOf({path_, item, parent, name, isIgnored, folders_.back().mayConvert});
    ScannedItem found{folders_.size() - firstLevel_, {}, isFolder, known.state};
    if (found.level > 0) {
        found.name = name;
    }
    found.state.isUnreadable = !S_ISLNK(item.st_mode) && !mayRead(item, scanner_.user_);
    scan_.items.push_back(std::move(found));
    if (known.identity != nullptr) {
        found_.insert(known.identity);
    } else if (repository_.hasKnownBelow(path_)) {
        blocked_.insert(path_ + "/");
    }
}

/// Adds the last folder itself; what is in it follows.
void TreeScanner::Pass::addFolder() {
    ScannedItem found{folders_.size() - 1 - firstLevel_, {}, true, {}};
    if (found.level > 0) {
        found.name = nameOf(path_);
    }
    scan_.items.push_back(std::move(found));
    // Where git knows of a file, it is there, as a folder.
    found_.insert(repository_.identityOf(path_));
}

/// Lists the last folder: adds what is in it, but notes the folders that are to be entered.
void TreeScanner::Pass::list() {
    const int descriptor = folders_.back().descriptor.get();
    scanner_.visitFolder_(path_, descriptor);
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    const std::unique_ptr<DIR, CloseFolder> listing(copy >= 0 ? fdopendir(copy) : nullptr);
    if (listing == nullptr) {
        const int error = errno;
        if (copy >= 0) {
            close(copy);
        }
        throw std::system_error(error, std::generic_category(), "a folder cannot be listed");
    }
    rewinddir(listing.get()); // the copy stands where the last one ended
    const std::size_t length = path_.size();
    std::size_t count = 0;
    while (const dirent* entry = readdir(listing.get())) {
        if (++count % kItemsAtATime == 0) {
            scanner_.mayInterrupt_();
        }
        const std::string_view name = entry->d_name;
        struct stat item{};
        if (name == "." || name == ".." || name == ".git" ||
            fstatat(descriptor, entry->d_name, &item, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        path_.append(length == 0 ? "" : "/").append(name);
        const bool ignored = isIgnored(S_ISDIR(item.st_mode));
        if (S_ISDIR(item.st_mode) && !isLeaf(item, entry->d_name, ignored)) {
            folders_.back().toEnter.emplace_back(name);
        } else {
            addItem(entry->d_name, item, ignored);
        }
        path_.resize(length);
    }
}

/// Enters what the last folder has to enter, and all below, and comes back to it.
void TreeScanner::Pass::walk() {
    const std::size_t start = folders_.size();
    while (true) {
        Folder& folder = folders_.back();
        if (folder.toEnter.empty()) {
            if (folders_.size() == start) {
                return;
            }
            pop();
            continue;
        }
        scanner_.mayInterrupt_();
        const std::string name = std::move(folder.toEnter.back());
        folder.toEnter.pop_back();
        path_.append(path_.empty() ? "" : "/").append(name);
        const bool ignored = isIgnored(true);
        struct stat item{};
        OwnedFd descriptor = openFolder(folder.descriptor.get(), name.c_str(), item);
        if (descriptor) {
            push(std::move(descriptor), item, ignored);
            addFolder();
            list();
            continue;
        }
        if (errno == EACCES &&
            fstatat(folder.descriptor.get(), name.c_str(), &item, AT_SYMLINK_NOFOLLOW) == 0) {
            ScannedItem found{folders_.size() - firstLevel_, name, true, {}};
            found.state.isUnreadable = true;
            scan_.items.push_back(std::move(found));
            blocked_.insert(path_ + "/");
        }
        path_.resize(folder.pathLength);
    }
}

/// Whether the rules ignore what is at `path_`, in the last folder.
bool TreeScanner::Pass::isIgnored(bool isFolder) const {
    if (!folders_.empty() && folders_.back().isIgnored) {
        return true; // what is in an ignored folder cannot be taken out again
    }
    const std::string_view path = path_;
    for (auto above = rules_.rbegin(); above != rules_.rend(); ++above) {
        const std::size_t start = above->pathLength + (above->pathLength > 0 ? 1 : 0);
        const auto verdict = above->rules.verdictOn(path.substr(start), isFolder);
        if (verdict != IgnoreRules::Verdict::none) {
            return verdict == IgnoreRules::Verdict::ignored;
        }
    }
    for (const IgnoreRules& rules : commonRules_) {
        const auto verdict = rules.verdictOn(path, isFolder);
        if (verdict != IgnoreRules::Verdict::none) {
            return verdict == IgnoreRules::Verdict::ignored;
        }
    }
    return false;
}

void TreeScanner::Pass::addDeleted(const std::string& path) {
    // None of `blocked_` begins with another, so that only the one before can be on the way.
    const auto after = blocked_.upper_bound(path);
    if (after == blocked_.begin() || !path.starts_with(*std::prev(after))) {
        scan_.deleted.push_back({path, repository_.stateOfDeleted(path)});
    }
}

} // namespace corvid
