#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <map>
#include <set>
#include <string>
#include <unordered_map>

namespace corvid {

struct FileEvent;

/// Says what changes in the folders of a tree, by inotify(7). Paths are relative to the top, which
/// is "". Folders are watched one by one: new ones by whoever finds them. One thread.
class TreeWatcher {
public:
    /// `top` is absolute. Throws std::system_error when the system has no more watchers to give.
    explicit TreeWatcher(std::string top);

    /// Readable when there is something to read. Owned by this object.
    int descriptor() const { return descriptor_.get(); }

    /// Watches what happens in `folder`. A folder that is gone, or may not be read, is left out.
    void watch(const std::string& folder);

    /// The paths that came, went, or changed since the last call, added to `paths`; "" when the
    /// system lost count, so that everything may have changed. Never waits.
    void read(std::set<std::string>& paths);

    /// True once a folder could not be watched for lack of watches: `fs.inotify.max_user_watches`.
    bool isIncomplete() const { return isIncomplete_; }

private:
    void note(const FileEvent& event, std::set<std::string>& paths);
    void unwatch(const std::string& folder);

    const std::string top_;
    const OwnedFd descriptor_;
    std::unordered_map<int, std::string> folders_;
    std::map<std::string, int> watches_;
    bool isIncomplete_ = false;
};

} // namespace corvid
