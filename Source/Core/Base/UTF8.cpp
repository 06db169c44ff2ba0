#include "Core/Base/UTF8.h"

namespace corvid {

namespace {

constexpr DecodedScalar badSequence(std::size_t length) {
    return {kReplacementCharacter, length, false};
}

// The second byte's range depends on the first, which rules out overlong forms, surrogates and
// what lies above U+10FFFF (Unicode, table 3-7). Later bytes are always 80 to BF.
struct Lead {
    std::size_t length;
    unsigned char secondMin;
    unsigned char secondMax;
};

constexpr Lead leadOf(unsigned char byte) {
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {2, 0x80, 0xBF};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return {3, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {4, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

} // namespace

DecodedScalar decodeUTF8(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return {first, 1, true};
    }
    const Lead lead = leadOf(first);
    if (lead.length == 0) {
        return badSequence(1);
    }
    char32_t scalar = first & (0x7FU >> lead.length);
    for (std::size_t i = 1; i < lead.length; ++i) {
        if (i == text.size()) {
            return badSequence(i);
        }
        const auto byte = static_cast<unsigned char>(text[i]);
        const unsigned char min = i == 1 ? lead.secondMin : 0x80;
        const unsigned char max = i == 1 ? lead.secondMax : 0xBF;
        if (byte < min || byte > max) {
            return badSequence(i);
        }
        scalar = (scalar << 6U) | (byte & 0x3FU);
    }
    return {scalar, lead.length, true};
}

bool isValidUTF8(std::string_view text) {
    constexpr std::size_t kPiece = 16;
    while (!text.empty()) {
        if (const std::string_view piece = text.substr(0, kPiece); isASCII(piece)) {
            text.remove_prefix(piece.size());
            continue;
        }
        const DecodedScalar decoded = decodeUTF8(text);
        if (!decoded.valid) {
            return false;
        }
        text.remove_prefix(decoded.length);
    }
    return true;
}

void appendUTF8(std::string& text, char32_t scalar) {
    if ((scalar >= 0xD800 && scalar <= 0xDFFF) || scalar > 0x10FFFF) {
        scalar = kReplacementCharacter;
    }
    const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    const auto appendRest = [append, scalar](unsigned shift) {
        append(0x80U | (scalar >> shift & 0x3FU));
    };
    if (scalar < 0x80) {
        append(scalar);
    } else if (scalar < 0x800) {
        append(0xC0U | scalar >> 6U);
        appendRest(0);
    } else if (scalar < 0x10000) {
        append(0xE0U | scalar >> 12U);
        appendRest(6);
        appendRest(0);
    } else {
        append(0xF0U | scalar >> 18U);
        appendRest(12);
        appendRest(6);
        appendRest(0);
    }
}

} // namespace corvid
