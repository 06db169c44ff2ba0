#include "Tools/corvid-host/Git/TreeWatcher.h"

#include "Platform/Unix/FileEvents.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/inotify.h>

namespace corvid {

namespace {

constexpr std::uint32_t kEvents = IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MODIFY |
                                  IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR | IN_DONT_FOLLOW;

} // namespace

TreeWatcher::TreeWatcher(std::string top)
    : top_(std::move(top)), descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!descriptor_) {
        throw std::system_error(errno, std::generic_category(),
                                "the system gives no inotify watcher; raise "
                                "fs.inotify.max_user_instances");
    }
}

void TreeWatcher::watch(const std::string& folder) {
    const std::string path = folder.empty() ? top_ : top_ + "/" + folder;
    const int watch = inotify_add_watch(descriptor_.get(), path.c_str(), kEvents);
    if (watch < 0) {
        isIncomplete_ = isIncomplete_ || errno == ENOSPC;
        return;
    }
    folders_[watch] = folder;
    watches_[folder] = watch;
}

void TreeWatcher::unwatch(const std::string& folder) {
    const std::string below = folder + "/";
    for (auto next = watches_.lower_bound(folder); next != watches_.end();) {
        if (next->first != folder && !next->first.starts_with(below)) {
            // Between "a" and "a/b" stand names such as "a-b".
            if (next->first.compare(0, folder.size(), folder) != 0) {
                break;
            }
            ++next;
            continue;
        }
        inotify_rm_watch(descriptor_.get(), next->second);
        folders_.erase(next->second);
        next = watches_.erase(next);
    }
}

void TreeWatcher::read(std::set<std::string>& paths) {
    while (readFileEvents(descriptor_.get(), [&](const FileEvent& event) { note(event, paths); })) {
    }
}

void TreeWatcher::note(const FileEvent& event, std::set<std::string>& paths) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        paths.insert("");
        return;
    }
    const auto folder = folders_.find(event.watch);
    if (folder == folders_.end()) {
        return;
    }
    if ((event.mask & IN_IGNORED) != 0) {
        if (const auto watch = watches_.find(folder->second);
            watch != watches_.end() && watch->second == event.watch) {
            watches_.erase(watch);
        }
        folders_.erase(folder);
        return;
    }
    if (event.name.empty()) {
        return;
    }
    std::string path = folder->second;
    path.append(path.empty() ? "" : "/").append(event.name);
    // A folder that moves takes its watches along; under its new name they are made anew.
    if ((event.mask & IN_ISDIR) != 0 && (event.mask & IN_MOVED_FROM) != 0) {
        unwatch(path);
    }
    paths.insert(std::move(path));
}

} // namespace corvid
