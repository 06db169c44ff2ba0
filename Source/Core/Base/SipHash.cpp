#include "Core/Base/SipHash.h"

#include <bit>
#include <cstddef>

namespace corvid {

namespace {

struct State {
    std::uint64_t v0, v1, v2, v3;

    void round() {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }

    void take(std::uint64_t word) {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    }
};

/// Up to eight bytes, the first one lowest.
template <class Bytes>
std::uint64_t littleEndian(const Bytes& bytes, std::size_t offset, std::size_t count) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; ++i) {
        word |= std::uint64_t{static_cast<std::uint8_t>(bytes[offset + i])} << (8 * i);
    }
    return word;
}

} // namespace

std::uint64_t sipHash(const std::array<std::uint8_t, 16>& key, std::string_view text) {
    const std::uint64_t k0 = littleEndian(key, 0, 8);
    const std::uint64_t k1 = littleEndian(key, 8, 8);
    State state{k0 ^ 0x736f6d6570736575, k1 ^ 0x646f72616e646f6d, k0 ^ 0x6c7967656e657261,
                k1 ^ 0x7465646279746573};
    std::size_t offset = 0;
    for (; text.size() - offset >= 8; offset += 8) {
        state.take(littleEndian(text, offset, 8));
    }
    state.take(littleEndian(text, offset, text.size() - offset) | std::uint64_t{text.size()}
                                                                      << 56U);
    state.v2 ^= 0xff;
    for (int i = 0; i < 4; ++i) {
        state.round();
    }
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

} // namespace corvid
