#pragma once

#include "Core/Archive/Value.h"

#include <string>

namespace corvid {

/// What `value` says as JSON, save for what GNUstep's menus and menu items do not keep as Apple's
/// do: being hidden, alternate, indented or titled with attributes; the title of a separator; the
/// action of an item with a submenu, which is always "submenuAction:"; whether a menu enables its
/// items by itself. Two values that agree in the rest give equal texts.
std::string commonNotation(const Value& value);

} // namespace corvid
