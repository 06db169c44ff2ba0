#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace corvid {

/// Makes a random UUID (RFC 9562, version 4) from 16 random bytes, which the caller draws, and
/// gives its upper-case text: 36 characters in groups of 8-4-4-4-12 hexadecimal digits.
/// The six bits that carry version and variant are overwritten.
std::string uuidString(std::array<std::uint8_t, 16> randomBytes);

} // namespace corvid
