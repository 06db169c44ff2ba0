#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace corvid {

/// An owned byte buffer: a payload, a reply, an archive.
using Bytes = std::vector<std::uint8_t>;

/// A borrowed run of bytes; valid only as long as its owner says.
using ByteView = std::span<const std::uint8_t>;

/// The eight bytes at `bytes` as an integer, the highest first.
inline std::uint64_t bigEndian64(const std::uint8_t* bytes) {
    // Spelled out, compilers make one load of it.
    return std::uint64_t{bytes[0]} << 56U | std::uint64_t{bytes[1]} << 48U |
           std::uint64_t{bytes[2]} << 40U | std::uint64_t{bytes[3]} << 32U |
           std::uint64_t{bytes[4]} << 24U | std::uint64_t{bytes[5]} << 16U |
           std::uint64_t{bytes[6]} << 8U | std::uint64_t{bytes[7]};
}

} // namespace corvid
