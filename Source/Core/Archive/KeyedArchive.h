#pragma once

#include "Core/Archive/ArchiveError.h"
#include "Core/Archive/Value.h"
#include "Core/Base/Bytes.h"

#include <optional>

namespace corvid {

/// Writes `root` as a keyed archive in a binary property list: the bytes that the platform's own
/// archiver (`archivedDataWithRootObject:`) writes for the same objects, but for the order of keys
/// inside one object, which is fixed here. Never fails. Any thread.
Bytes archivedData(const Value& root);

/// Reads a keyed archive, in a binary or an XML property list, that may come from anyone.
/// Nothing when it is refused; then `error`, if given, says why and where. Any thread.
std::optional<Value> unarchivedObject(ByteView archive, ArchiveError* error = nullptr);

} // namespace corvid
