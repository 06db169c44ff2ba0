#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace corvid {

/// What a decoder puts in the place of bytes that are not UTF-8.
inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// One step through UTF-8 text.
struct DecodedScalar {
    char32_t scalar;    ///< kReplacementCharacter for a bad sequence
    std::size_t length; ///< bytes read, 1 to 4
    bool valid;         ///< false for a bad sequence
};

/// Reads the scalar at the start of `text`, which must not be empty. A bad sequence is as long as
/// its longest part that could have begun a good one, and at least one byte ("maximal subpart",
/// Unicode, section 3.9). Any thread.
DecodedScalar decodeUTF8(std::string_view text);

/// True when every byte of `text` is below 80.
inline bool isASCII(std::string_view text) {
    // Eight bytes at a time; the last eight may overlap those before them.
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    std::uint64_t all = 0;
    const auto look = [&](std::size_t at, std::size_t size) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + at, size);
        all |= word;
    };
    if (text.size() >= kWord) {
        for (std::size_t at = 0; at + kWord < text.size(); at += kWord) {
            look(at, kWord);
        }
        look(text.size() - kWord, kWord);
    } else if (text.size() >= kWord / 2) {
        look(0, kWord / 2);
        look(text.size() - kWord / 2, kWord / 2);
    } else {
        for (const char c : text) {
            all |= static_cast<unsigned char>(c);
        }
    }
    return (all & 0x8080808080808080U) == 0;
}

/// True when `text` is UTF-8 throughout: no overlong form, no surrogate, nothing above U+10FFFF.
bool isValidUTF8(std::string_view text);

/// Puts the UTF-8 of `scalar` at the end of `text`; that of kReplacementCharacter when it is a
/// surrogate or beyond U+10FFFF.
void appendUTF8(std::string& text, char32_t scalar);

} // namespace corvid
