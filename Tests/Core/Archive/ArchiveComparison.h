#pragma once

#include "Core/Archive/Value.h"
#include "Core/Base/Bytes.h"

#include <string>

namespace corvid {

/// The bytes of a file of test data; fails the test when it cannot be read.
Bytes readTestFile(const std::string& path);

/// A binary property list with nothing left but what must match between two writers of the same
/// values: its length, its widths, and its values with the keys of each dictionary sorted.
std::string comparableLayout(ByteView archive);

/// Everything that a value says: every member, every field with its form, and which objects are
/// one. Equal text means equal values.
std::string completeDescription(const Value& value);

} // namespace corvid
