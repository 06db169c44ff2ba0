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
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    std::uint64_t all = 0;
    std::size_t i = 0;
    for (std::uint64_t word = 0; i + kWord <= text.size(); i += kWord) {
        std::memcpy(&word, text.data() + i, kWord);
        all |= word;
    }
    for (; i < text.size(); ++i) {
        all |= static_cast<unsigned char>(text[i]);
    }
    return (all & 0x8080808080808080U) == 0;
}

/// True when `text` is UTF-8 throughout: no overlong form, no surrogate, nothing above U+10FFFF.
bool isValidUTF8(std::string_view text);

/// Puts the UTF-8 of `scalar` at the end of `text`; that of kReplacementCharacter when it is a
/// surrogate or beyond U+10FFFF.
void appendUTF8(std::string& text, char32_t scalar);

} // namespace corvid
