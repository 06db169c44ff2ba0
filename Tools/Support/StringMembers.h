#pragma once

#include "Platform/Interfaces/Bundle.h"
#include "Support/JSONObjectWriter.h"

#include <string_view>

namespace corvid {

/// Adds to `object` what every member of the string extension that needs no further argument
/// answers for `text`, by its name, after "in", which is `text` itself. Absent results are null; a
/// colour is [red, green, blue] of 0 to 255, or [] for the system's grey; a raw buffer is the list
/// of its bytes. `bundle` is where `localized` looks.
void addStringMembers(JSONObjectWriter& object, std::string_view text, const Bundle& bundle);

} // namespace corvid
