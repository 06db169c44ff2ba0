#pragma once

#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvid::gtk {

/// Which items of a folder.
enum class Listing : std::uint8_t {
    /// What a file manager shows first, unless told to sort otherwise, and what it shows meanwhile,
    /// when it has read only some of the folder: kFirstItems of those that are not hidden,
    /// subfolders before files, both by name.
    first,
    all, ///< in any order
};

inline constexpr std::size_t kFirstItems = 1000;
/// Items that are heard of at a time, lest the main thread be held up.
inline constexpr std::size_t kListedAtOnce = 1000;

/// Hears of at most kListedAtOnce items of a folder, on the main thread.
using HearItems =
    std::function<void(const std::string& folder, const std::vector<link::AskedItem>& items)>;

/// Folders that are listed at a time, each by a thread of its own until its items were heard of. A
/// network that does not answer holds up so many threads and no more; folders elsewhere are not
/// listed while it holds up all of them.
inline constexpr std::size_t kMaxListings = 8;
/// Folders that wait for that. The one that has waited longest is left out when one more comes.
inline constexpr std::size_t kMaxWaitingListings = 64;

/// Finds items of `folder`, in a thread, since a folder may be large, or lie on a disk that does
/// not answer. `hear` is called until all were named, and once when there are none, as in a folder
/// that cannot be read. It is never called for a folder that is left out, or for one that still
/// waits when it is to be listed once more; the badges of such items come when the file manager
/// asks for them. A folder is listed once at a time. No thread is waited for, nor has to end
/// before the process does. Main thread.
void listItems(const std::string& folder, Listing which, HearItems hear);

} // namespace corvid::gtk
