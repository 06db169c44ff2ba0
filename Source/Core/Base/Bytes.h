#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace corvid {

/// An owned byte buffer: a payload, a reply, an archive.
using Bytes = std::vector<std::uint8_t>;

/// A borrowed run of bytes; valid only as long as its owner says.
using ByteView = std::span<const std::uint8_t>;

} // namespace corvid
