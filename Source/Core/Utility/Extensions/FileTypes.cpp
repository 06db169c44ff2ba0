#include "Core/Utility/Extensions/FileTypes.h"

#include "Core/Base/UTF8.h"
#include "Core/Utility/Extensions/Characters.h"
#include "Core/Utility/Extensions/PathStrings.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utf8proc.h>

namespace corvid {

namespace {

constexpr std::string_view mediaTypeExtensions[] = {"bmp", "raw", "cr2", "crw",  "dng", "nef",
                                                    "dwg", "gif", "jpg", "jpeg", "png", "tiff",
                                                    "avi", "m4v", "mov", "mp4",  "wmv"};

constexpr std::string_view kOfficeExtensions[] = {
    "doc",  "dot",  "wbk",  "docx", "docm", "dotx", "dotm", "docb", "wll",  "xls",
    "xlt",  "xlm",  "xll_", "xla_", "xla5", "xla8", "xlsx", "xlsm", "xltx", "xlsb",
    "xla",  "xll",  "xlw",  "ppt",  "pot",  "pps",  "ppa",  "ppam", "pptx", "pptm",
    "potx", "potm", "ppam", "ppsx", "ppsm", "sldx", "sldm", "pa"};

constexpr std::string_view kCoeditExtensions[] = {"docx", "docm", "xlsx", "xlsm",
                                                  "xlsb", "pptx", "ppsx"};

constexpr std::string_view kCompressedExtensions[] = {"zip", "rar", "7z", "deb",
                                                      "pkg", "rpm", "gz", "z"};

constexpr std::string_view kUnloggablePaths[] = {"/", "/Personal Folders", "/Shared Folders",
                                                 "/Favorites", "/Personal Cloud"};

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The value of a Base64 character, -1 for any other.
constexpr auto kBase64Values = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::int8_t i = 0; i < 64; ++i) {
        values[static_cast<unsigned char>(kBase64Alphabet[i])] = i;
    }
    return values;
}();

// The platform's whitespaceAndNewlineCharacterSet: Zs, and U+0009 to U+000D, U+0085, U+2028 and
// U+2029.
constexpr bool isWhitespaceOrNewline(char32_t scalar) {
    return (scalar >= 0x09 && scalar <= 0x0D) || scalar == 0x20 || scalar == 0x85 ||
           scalar == 0xA0 || scalar == 0x1680 || (scalar >= 0x2000 && scalar <= 0x200A) ||
           scalar == 0x2028 || scalar == 0x2029 || scalar == 0x202F || scalar == 0x205F ||
           scalar == 0x3000;
}

std::string_view trimmed(std::string_view text) {
    std::size_t start = text.size();
    std::size_t end = 0;
    for (std::size_t i = 0; i < text.size();) {
        const DecodedScalar decoded = decodeUTF8(text.substr(i));
        if (!isWhitespaceOrNewline(decoded.scalar)) {
            start = std::min(start, i);
            end = i + decoded.length;
        }
        i += decoded.length;
    }
    return end == 0 ? std::string_view() : text.substr(start, end - start);
}

// In capitals, where one letter may become several, as the ligature U+FB00 becomes "FF". utf8proc
// knows that of case folding only; the capitals of what a letter folds to are the capitals of the
// letter, unless it is one already (U+1E9E folds to "ss").
std::string uppercased(std::string_view text) {
    constexpr std::size_t kLongestFolding = 4;
    std::string result;
    while (!text.empty()) {
        const DecodedScalar decoded = decodeUTF8(text);
        text.remove_prefix(decoded.length);
        const auto scalar = static_cast<utf8proc_int32_t>(decoded.scalar);
        std::array<utf8proc_int32_t, kLongestFolding> folded{scalar};
        utf8proc_ssize_t count = 1;
        if (utf8proc_category(scalar) != UTF8PROC_CATEGORY_LU) {
            int boundClass = 0;
            count = utf8proc_decompose_char(scalar, folded.data(), kLongestFolding,
                                            UTF8PROC_CASEFOLD, &boundClass);
            if (count == 1) {
                folded[0] = scalar;
            }
        }
        std::for_each(folded.begin(), folded.begin() + count, [&result](utf8proc_int32_t s) {
            appendUTF8(result, static_cast<char32_t>(utf8proc_toupper(s)));
        });
    }
    return result;
}

// As the platform's scanner reads: blanks and "0X" before the digits are passed over.
std::uint64_t scannedHexadecimal(std::string_view text) {
    while (!text.empty()) {
        const DecodedScalar decoded = decodeUTF8(text);
        if (!isWhitespaceOrNewline(decoded.scalar)) {
            break;
        }
        text.remove_prefix(decoded.length);
    }
    if (text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    std::uint64_t number = 0;
    for (const char c : text) {
        const bool isHexLetter = c >= 'A' && c <= 'F';
        if (!isDigit(c) && !isHexLetter) {
            break;
        }
        number = number * 16 + static_cast<std::uint64_t>(isDigit(c) ? c - '0' : c - 'A' + 10);
    }
    return number;
}

} // namespace

bool isMediaType(std::string_view path) {
    const std::string_view extension = pathExtension(path);
    return std::any_of(
        std::begin(mediaTypeExtensions), std::end(mediaTypeExtensions),
        [extension](std::string_view entry) { return equalsWhenLowercased(extension, entry); });
}

bool isWatermarkEligible(std::string_view path) {
    return isOneOf(pathExtension(path), watermarkEligibleExtensions);
}

bool isEligibleForInUseCheck(std::string_view path) {
    return isOneOf(pathExtension(path), inUseCheckSupportedExtensionsSet);
}

bool isOfficeFile(std::string_view path) {
    return isOneOf(pathExtension(path), kOfficeExtensions);
}

bool isCoeditSupported(std::string_view path) {
    return isOneOf(pathExtension(path), kCoeditExtensions);
}

bool isCompressedFile(std::string_view path) {
    return isOneOf(pathExtension(path), kCompressedExtensions);
}

std::string getOfficeLockFile(std::string_view name) {
    return std::string("~$").append(name);
}

// The pattern is "[A-Z0-9a-z._%+-]+@[A-Za-z0-9.-]+\.[A-Za-z]{2,20}". Neither class holds "@" and
// the last one holds no dot, so the first "@" and the last dot are the only places to split at.
bool isEmail(std::string_view text) {
    const std::size_t at = text.find('@');
    const std::size_t dot = text.rfind('.');
    if (at == std::string_view::npos || dot == std::string_view::npos || dot < at) {
        return false;
    }
    const std::string_view local = text.substr(0, at);
    const std::string_view domain = text.substr(at + 1, dot - at - 1);
    const std::string_view top = text.substr(dot + 1);
    const auto isMadeOf = [](std::string_view part, std::string_view marks) {
        return !part.empty() && std::all_of(part.begin(), part.end(), [marks](char c) {
            return isLetter(c) || isDigit(c) || marks.find(c) != std::string_view::npos;
        });
    };
    return isMadeOf(local, "._%+-") && isMadeOf(domain, ".-") && top.size() >= 2 &&
           top.size() <= 20 && std::all_of(top.begin(), top.end(), isLetter);
}

std::string toBase64(std::string_view text) {
    std::string result;
    result.reserve((text.size() + 2) / 3 * 4);
    for (; !text.empty(); text.remove_prefix(std::min<std::size_t>(3, text.size()))) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8U | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            result += i <= text.size() ? kBase64Alphabet[group >> (18U - 6U * i) & 0x3FU] : '=';
        }
    }
    return result;
}

// Bits that the padding leaves over are ignored, as the platform ignores them.
std::optional<std::string> fromBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) {
        text.remove_suffix(1);
    }
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    unsigned bitCount = 0;
    for (const char c : text) {
        const std::int8_t value = kBase64Values[static_cast<unsigned char>(c)];
        if (value < 0) {
            return std::nullopt;
        }
        bits = (bits << 6U | static_cast<std::uint32_t>(value)) & 0xFFFU;
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes += static_cast<char>(bits >> bitCount & 0xFFU);
        }
    }
    if (!isValidUTF8(bytes)) {
        return std::nullopt;
    }
    return bytes;
}

Color colorFromHex(std::string_view text) {
    const std::string capitals = uppercased(trimmed(text));
    const std::string_view digits = deletingPrefix(capitals, "#");
    if (characterCount(firstCharacters(digits, 7)) != 6) {
        return kGrayColor;
    }
    const std::uint64_t number = scannedHexadecimal(digits);
    const auto part = [number](unsigned shift) {
        return static_cast<double>(number >> shift & 0xFFU) / 255.0;
    };
    return {part(16), part(8), part(0), 1.0};
}

std::optional<Bytes> toPointer(std::string_view text) {
    if (!isValidUTF8(text)) {
        return std::nullopt;
    }
    return Bytes(text.begin(), text.end());
}

bool containsInvalidPlatformFileNameCharacters(std::string_view text) {
    constexpr std::string_view kInvalid = "\"<>|:*?\\";
    return std::any_of(text.begin(), text.end(), [kInvalid](char c) {
        return static_cast<unsigned char>(c) < 0x20 || kInvalid.find(c) != std::string_view::npos;
    });
}

bool isExtractedZip(std::string_view path) {
    const std::string_view name = lastPathComponent(path);
    return containsText(name, ".BAH") || beginsWith(name, ".AU.");
}

bool isLoggable(std::string_view path) {
    return !isOneOf(path, kUnloggablePaths) && !ignorable(path);
}

std::string reduceToItemIDComponent(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
    return withoutText(withoutText(last, "Items("), ")");
}

bool isPersonalFoldersID(std::string_view identifier) {
    return beginsWith(identifier, "foh");
}

bool isLinkOrNoteId(std::string_view identifier) {
    return beginsWith(identifier, "l") || beginsWith(identifier, "n");
}

bool isStandardCorvidFolder(std::string_view identifier) {
    return beginsWith(identifier, "fo");
}

} // namespace corvid
