#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace corvid {

/// What inotify(7) tells of a file or folder that is watched.
struct FileEvent {
    int watch = -1;         ///< as inotify_add_watch() gave it
    std::uint32_t mask = 0; ///< IN_CREATE and so on
    std::string_view name;  ///< the item of the watched folder, if any; valid during the call
};

/// Reads some of the events of `inotify` and calls `hear` with each. Waits for the first one if the
/// descriptor does. False if there was none to read: errno says why, EAGAIN that none has happened.
bool readFileEvents(int inotify, const std::function<void(const FileEvent&)>& hear);

} // namespace corvid
