#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <string>

namespace corvid {

/// A text put together from pieces that rules and Unicode make something of, and from their near
/// misses: each byte of `choices` picks one. For a fuzzer, whose bytes so become texts that reach
/// the rules.
std::string textFromChoices(std::span<const std::uint8_t> choices);

/// Random texts of that kind, half of them URL texts; their median is about 100 bytes, and one in
/// 10,000 is longer than 4 KiB. The same seed gives the same texts. One thread.
class TextGenerator {
public:
    explicit TextGenerator(std::uint64_t seed) : random_(seed) {}
    std::string next();

private:
    std::mt19937_64 random_;
};

} // namespace corvid
