#pragma once

#include "Core/Archive/Value.h"

#include <string>

namespace corvid {

/// `value` as an indented tree for a person: one line a value, nothing in it acted on by a
/// terminal, ends with a newline. What stands in several places is shown in the first. Any thread.
std::string archiveTree(const Value& value);

} // namespace corvid
