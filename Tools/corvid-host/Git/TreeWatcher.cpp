#include "Tools/corvid-host/Git/TreeWatcher.h"

#include "Platform/Unix/FileEvents.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>

namespace corvid {

namespace {

constexpr std::uint32_t kEvents = IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MODIFY |
                                  IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;

/// Splits the first component off `path`.
std::string_view takeComponent(std::string_view& path) {
    const std::size_t end = path.find('/');
    const std::string_view component = path.substr(0, end);
    path = end == std::string_view::npos ? std::string_view() : path.substr(end + 1);
    return component;
}

std::size_t bytesOf(const std::set<std::string>& paths) {
    std::size_t bytes = 0;
    for (const std::string& path : paths) {
        bytes += path.size();
    }
    return bytes;
}

} // namespace

struct TreeWatcher::Folder {
    std::string name;
    Folder* parent = nullptr;
    int watch = -1; ///< as inotify_add_watch() gave it; -1 without one
    std::map<std::string_view, std::unique_ptr<Folder>> children; ///< by their own `name`

    std::string path() const {
        std::vector<const Folder*> folders;
        for (const Folder* folder = this; folder->parent != nullptr; folder = folder->parent) {
            folders.push_back(folder);
        }
        std::string text;
        for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
            text.append(text.empty() ? "" : "/").append((*folder)->name);
        }
        return text;
    }
};

TreeWatcher::TreeWatcher(std::string top)
    : top_(std::move(top)), descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      root_(std::make_unique<Folder>()) {
    if (!descriptor_) {
        throw std::system_error(errno, std::generic_category(),
                                "the system gives no inotify watcher; raise "
                                "fs.inotify.max_user_instances");
    }
}

TreeWatcher::~TreeWatcher() {
    forget(std::move(root_));
}

void TreeWatcher::watch(const std::string& folder) {
    const std::string path = folder.empty() ? top_ : top_ + "/" + folder;
    const OwnedFd opened(open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (opened) {
        watch(folder, opened.get());
    }
}

void TreeWatcher::watch(const std::string& folder, int descriptor) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const int watch = inotify_add_watch(descriptor_.get(), path.c_str(), kEvents);
    if (watch < 0) {
        isIncomplete_ = isIncomplete_ || errno == ENOSPC;
        return;
    }
    Folder& watched = make(folder);
    // A folder has one watch, which goes where it goes.
    if (const auto known = watches_.find(watch);
        known != watches_.end() && known->second != &watched) {
        known->second->watch = -1;
    }
    if (watched.watch != watch) {
        watches_.erase(watched.watch);
    }
    watched.watch = watch;
    watches_[watch] = &watched;
}

TreeWatcher::Folder* TreeWatcher::find(std::string_view folder) const {
    Folder* found = root_.get();
    while (!folder.empty()) {
        const auto child = found->children.find(takeComponent(folder));
        if (child == found->children.end()) {
            return nullptr;
        }
        found = child->second.get();
    }
    return found;
}

TreeWatcher::Folder& TreeWatcher::make(const std::string& folder) {
    std::string_view rest = folder;
    Folder* made = root_.get();
    if (last_ != nullptr) {
        // Up from the last folder to the nearest one that is above both.
        const auto [differs, ignored] =
            std::mismatch(lastPath_.begin(), lastPath_.end(), folder.begin(), folder.end());
        const auto same = static_cast<std::size_t>(differs - lastPath_.begin());
        std::size_t length = lastPath_.size();
        made = last_;
        while (length > 0 &&
               !(length <= same && (folder.size() == length || folder[length] == '/'))) {
            length -= std::min(length, made->name.size() + 1);
            made = made->parent;
        }
        rest.remove_prefix(std::min(rest.size(), length == 0 ? 0 : length + 1));
    }
    while (!rest.empty()) {
        const std::string_view name = takeComponent(rest);
        auto child = made->children.find(name);
        if (child == made->children.end()) {
            auto added = std::make_unique<Folder>();
            added->name = name;
            added->parent = made;
            const std::string_view key = added->name;
            child = made->children.emplace(key, std::move(added)).first;
        }
        made = child->second.get();
    }
    last_ = made;
    lastPath_ = folder;
    return *made;
}

void TreeWatcher::unwatch(const std::string& folder) {
    Folder* const found = find(folder);
    if (found == nullptr || found == root_.get()) {
        return;
    }
    Folder* const parent = found->parent;
    forget(std::move(parent->children.extract(found->name).mapped()));
    prune(parent);
}

/// Drops the folder and those above it, as far as they are neither watched nor lead to one.
void TreeWatcher::prune(Folder* folder) {
    last_ = nullptr;
    while (folder->parent != nullptr && folder->watch < 0 && folder->children.empty()) {
        Folder* const parent = folder->parent;
        parent->children.erase(parent->children.find(folder->name));
        folder = parent;
    }
}

void TreeWatcher::forget(std::unique_ptr<Folder> folder) {
    last_ = nullptr;
    std::vector<std::unique_ptr<Folder>> folders;
    folders.push_back(std::move(folder));
    while (!folders.empty()) {
        const std::unique_ptr<Folder> next = std::move(folders.back());
        folders.pop_back();
        if (next->watch >= 0) {
            inotify_rm_watch(descriptor_.get(), next->watch);
            watches_.erase(next->watch);
        }
        for (auto& [name, child] : next->children) {
            folders.push_back(std::move(child));
        }
    }
}

void TreeWatcher::read(std::set<std::string>& paths) {
    std::size_t bytes = bytesOf(paths);
    while (readFileEvents(descriptor_.get(), [&](const FileEvent& event) {
        if (auto path = changedPath(event)) {
            bytes += path->size();
            paths.insert(*std::move(path));
        }
    })) {
        if (bytes > kMostPathBytes || paths.contains("")) {
            paths = {""};
            bytes = 0;
        }
    }
}

std::optional<std::string> TreeWatcher::changedPath(const FileEvent& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        return "";
    }
    const auto found = watches_.find(event.watch);
    if (found == watches_.end()) {
        return std::nullopt;
    }
    Folder* const folder = found->second;
    if ((event.mask & IN_IGNORED) != 0) {
        watches_.erase(found);
        folder->watch = -1;
        prune(folder);
        return std::nullopt;
    }
    if (event.name.empty()) {
        return std::nullopt;
    }
    std::string path = folder->path();
    path.append(path.empty() ? "" : "/").append(event.name);
    // A folder that moves takes its watches along; under its new name they are made anew.
    if ((event.mask & IN_ISDIR) != 0 && (event.mask & IN_MOVED_FROM) != 0) {
        unwatch(path);
    }
    return path;
}

} // namespace corvid
