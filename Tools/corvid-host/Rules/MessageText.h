#pragma once

#include "Core/Archive/Value.h"
#include "Core/Base/Bytes.h"

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace corvid {

/// A value as JSON: URLs as their absolute text, menu items as objects with their title, tag and
/// action, data as its length, and what has no form of its own as null.
nlohmann::ordered_json jsonOf(const Value& value);

/// One line of JSON about a message as it came: its number, its name, and its payload, or the
/// count of its bytes when they cannot be read.
std::string messageLine(std::int32_t messageID, std::optional<ByteView> data);

} // namespace corvid
