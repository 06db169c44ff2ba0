#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace corvid {

/// SipHash-2-4 of `text` under `key` (Aumasson and Bernstein, 2012): who does not have the key can
/// neither tell what was hashed nor try guesses. Any thread.
std::uint64_t sipHash(const std::array<std::uint8_t, 16>& key, std::string_view text);

} // namespace corvid
