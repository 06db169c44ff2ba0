#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

namespace corvid {

struct FileEvent;

/// Says what changes in the folders of a tree, by inotify(7). Paths are relative to the top, which
/// is "". Folders are watched one by one: new ones by whoever finds them. A folder takes memory for
/// its name, not for its path. One thread.
class TreeWatcher {
public:
    /// The paths that read() adds may take up so many bytes; of more it says only that everything
    /// may have changed.
    static constexpr std::size_t kMostPathBytes = 16 * 1024 * 1024;

    /// `top` is absolute. Throws std::system_error when the system has no more watchers to give.
    explicit TreeWatcher(std::string top);
    ~TreeWatcher();

    /// Readable when there is something to read. Owned by this object.
    int descriptor() const { return descriptor_.get(); }

    /// Watches what happens in `folder`. A folder that is gone, or may not be read, is left out.
    void watch(const std::string& folder);

    /// As above for the folder at `folder` that `descriptor` has open, however long its path is.
    /// Cheap for folders in the order of a walk through the tree.
    void watch(const std::string& folder, int descriptor);

    /// The paths that came, went, or changed since the last call, added to `paths`; "" alone when
    /// the system lost count, or there are too many, so that everything may have changed. Never
    /// waits.
    void read(std::set<std::string>& paths);

    /// True once a folder could not be watched for lack of watches: `fs.inotify.max_user_watches`.
    bool isIncomplete() const { return isIncomplete_; }

private:
    struct Folder;

    /// The path that the event is about, if anybody wants to know.
    std::optional<std::string> changedPath(const FileEvent& event);
    void unwatch(const std::string& folder);
    Folder* find(std::string_view folder) const;
    Folder& make(const std::string& folder);
    void prune(Folder* folder);
    void forget(std::unique_ptr<Folder> folder);

    const std::string top_;
    const OwnedFd descriptor_;
    std::unique_ptr<Folder> root_;
    std::unordered_map<int, Folder*> watches_;
    /// Where make() was last, from where the next folder is near.
    Folder* last_ = nullptr;
    std::string lastPath_;
    bool isIncomplete_ = false;
};

} // namespace corvid
