#pragma once

#include "Core/Archive/ArchiveError.h"
#include "Core/Archive/Value.h"
#include "Core/Base/Bytes.h"

#include <optional>

namespace corvid {

/// What a property list, binary or XML, says by itself, whether or not it is an archive. A
/// reference between objects becomes, as in XML, a dictionary with the one key "CF$UID".
/// Nothing when it is refused; then `error`, if given, says why and where. Any thread.
std::optional<Value> propertyListValue(ByteView bytes, ArchiveError* error = nullptr);

} // namespace corvid
