#pragma once

#include "Core/Archive/Menu.h"
#include "Core/Archive/Value.h"

#include <string>

namespace corvid {

/// What `value` holds, on one line, for transcripts: strings in quotes, the keys of dictionaries
/// and opaque objects sorted, nothing of how an archive laid it out.
std::string valueText(const Value& value);

/// Every property of a menu item that is not the default, and its submenu. Of its other fields only
/// what a menu shows or hands back: attributed title and represented object.
std::string menuItemText(const MenuItem& item);

} // namespace corvid
