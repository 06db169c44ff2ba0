#pragma once

#include "Core/Base/Bytes.h"

#include <cstdint>
#include <optional>
#include <string>

namespace corvid {

/// One line of JSON about a message as it came: `id`, its number; `message`, its name, if it has
/// one; and `payload` in the notation of `corvid decode --json`, or else `unreadableBytes` and, in
/// `problem`, why. No line says much more than the message has bytes: one whose shared objects
/// would unfold is not unfolded. Any thread.
std::string messageLine(std::int32_t messageID, std::optional<ByteView> data);

} // namespace corvid
