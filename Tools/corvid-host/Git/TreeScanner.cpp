#include "Tools/corvid-host/Git/TreeScanner.h"

#include <memory>
#include <string_view>
#include <unordered_set>
#include <utility>

#include <dirent.h>
#include <fcntl.h>

namespace corvid {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

} // namespace

struct TreeScanner::Scan {
    std::vector<ScannedItem> items;
    std::unordered_set<std::string> found;
    /// Files, and folders that were not entered.
    std::unordered_set<std::string> leaves;
};

TreeScanner::TreeScanner(GitRepository& repository, User user, FolderVisitor visitFolder)
    : repository_(repository), user_(std::move(user)), visitFolder_(std::move(visitFolder)) {}

std::vector<ScannedItem> TreeScanner::scan(const std::string& path) {
    Scan scan;
    struct stat item{};
    if (lstat(absolute(path).c_str(), &item) == 0) {
        path.empty() ? enter(scan, path) : add(scan, path, item);
    } else if (isBelowFile(path)) {
        return {};
    }
    repository_.forEachKnownFile(path, [&](const std::string& file) { addDeleted(scan, file); });
    return std::move(scan.items);
}

void TreeScanner::add(Scan& scan, const std::string& path, const struct stat& item) {
    const bool isFolder = S_ISDIR(item.st_mode) && !repository_.isRepository(path);
    if (isFolder && mayRead(item, user_) && !repository_.isIgnoredFolder(path)) {
        enter(scan, path);
        return;
    }
    ScannedItem found{path, isFolder, repository_.stateOf(path, item)};
    found.state.isUnreadable = !S_ISLNK(item.st_mode) && !mayRead(item, user_);
    scan.found.insert(path);
    scan.leaves.insert(path);
    scan.items.push_back(std::move(found));
}

void TreeScanner::enter(Scan& scan, const std::string& folder) {
    visitFolder_(folder);
    const std::unique_ptr<DIR, CloseFolder> listing(opendir(absolute(folder).c_str()));
    ScannedItem found{folder, true, {}};
    found.state.isUnreadable = listing == nullptr;
    if (listing == nullptr) {
        scan.leaves.insert(folder);
    }
    if (!folder.empty()) {
        scan.found.insert(folder);
        scan.items.push_back(std::move(found));
    }
    while (const dirent* entry = listing ? readdir(listing.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        struct stat item{};
        if (name == "." || name == ".." || name == ".git" ||
            fstatat(dirfd(listing.get()), entry->d_name, &item, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        std::string path = folder;
        path.append(folder.empty() ? "" : "/").append(name);
        add(scan, path, item);
    }
}

void TreeScanner::addDeleted(Scan& scan, const std::string& path) {
    if (scan.found.contains(path)) {
        return;
    }
    for (std::string above = parentOf(path); !above.empty(); above = parentOf(above)) {
        if (scan.leaves.contains(above)) {
            return;
        }
    }
    scan.items.push_back({path, false, repository_.stateOfDeleted(path)});
}

bool TreeScanner::isBelowFile(const std::string& path) const {
    for (std::string above = parentOf(path); !above.empty(); above = parentOf(above)) {
        struct stat item{};
        if (lstat(absolute(above).c_str(), &item) == 0) {
            return !S_ISDIR(item.st_mode);
        }
    }
    return false;
}

std::string TreeScanner::absolute(const std::string& path) const {
    return path.empty() ? repository_.workTree() : repository_.workTree() + "/" + path;
}

} // namespace corvid
