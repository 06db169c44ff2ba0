#include "Core/Base/PrintableText.h"

#include "Core/Base/UTF8.h"

#include <algorithm>
#include <cstddef>

namespace corvid {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

/// A byte that stands for itself, whatever is around it.
bool isPlain(char c) {
    return c >= ' ' && c <= '~' && c != '\\';
}

void appendByteEscape(std::string& out, unsigned char byte) {
    out += "\\x";
    out += kHexDigits[byte >> 4U];
    out += kHexDigits[byte & 0x0FU];
}

void appendScalarEscape(std::string& out, char32_t scalar) {
    out += "\\u{";
    int shift = 20;
    while (shift > 0 && (scalar >> static_cast<unsigned>(shift)) == 0) {
        shift -= 4;
    }
    for (; shift >= 0; shift -= 4) {
        out += kHexDigits[(scalar >> static_cast<unsigned>(shift)) & 0x0FU];
    }
    out += '}';
}

/// Characters beyond ASCII that break a line, reorder what is around them, or cannot be seen
/// (Unicode general categories Cc, Cf, Zl, Zp; Unicode Standard Annex #9 for the bidi controls).
bool isDeceptive(char32_t scalar) {
    struct Range {
        char32_t first, last;
    };
    static constexpr Range kRanges[] = {
        {0x80, 0x9F},     {0xAD, 0xAD},     {0x600, 0x605},     {0x61C, 0x61C},   {0x6DD, 0x6DD},
        {0x70F, 0x70F},   {0x180E, 0x180E}, {0x200B, 0x200F},   {0x2028, 0x202E}, {0x2060, 0x206F},
        {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
    };
    return std::any_of(std::begin(kRanges), std::end(kRanges), [scalar](const Range& range) {
        return scalar >= range.first && scalar <= range.last;
    });
}

} // namespace

void appendPrintableText(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const auto special = std::find_if_not(text.begin(), text.end(), isPlain);
        const auto plain = static_cast<std::size_t>(special - text.begin());
        out.append(text, 0, plain);
        text.remove_prefix(plain);
        if (text.empty()) {
            return;
        }

        const DecodedScalar decoded = decodeUTF8(text);
        const std::string_view bytes = text.substr(0, decoded.length);
        text.remove_prefix(decoded.length);
        if (!decoded.valid) {
            for (const char byte : bytes) {
                appendByteEscape(out, static_cast<unsigned char>(byte));
            }
        } else if (decoded.scalar == '\\') {
            out += "\\\\";
        } else if (decoded.scalar == '\n') {
            out += "\\n";
        } else if (decoded.scalar == '\r') {
            out += "\\r";
        } else if (decoded.scalar == '\t') {
            out += "\\t";
        } else if (decoded.scalar < 0x80) {
            appendByteEscape(out, static_cast<unsigned char>(decoded.scalar));
        } else if (isDeceptive(decoded.scalar)) {
            appendScalarEscape(out, decoded.scalar);
        } else {
            out += bytes;
        }
    }
}

std::string printableText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    appendPrintableText(out, text);
    return out;
}

std::string printableLines(std::string_view text) {
    constexpr std::string_view kKept = "\n\t\\";
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(kKept), text.size());
        appendPrintableText(out, text.substr(0, end));
        text.remove_prefix(end);
        if (!text.empty()) {
            out += text.front();
            text.remove_prefix(1);
        }
    }
    return out;
}

} // namespace corvid
