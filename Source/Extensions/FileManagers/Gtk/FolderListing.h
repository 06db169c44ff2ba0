#pragma once

#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace corvid::gtk {

/// What a file manager shows first of a folder, unless told to sort otherwise, and what it shows
/// meanwhile, when it has read only some of the folder.
inline constexpr std::size_t kFirstItems = 1000;

/// Hears of the first items of a folder, on the main thread.
using HearFirstItems =
    std::function<void(const std::string& folder, const std::vector<link::AskedItem>& items)>;

/// Finds the first items of `folder`, subfolders before files, both by name. In a thread of its
/// own, since a folder may be large, or lie on a disk that does not answer. Hidden items are left
/// out; a folder that cannot be read has none.
void listFirstItems(const std::string& folder, HearFirstItems hear);

} // namespace corvid::gtk
