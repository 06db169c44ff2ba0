#include "Tests/Support/ReferenceStrings.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <regex>
#include <unordered_map>
#include <utf8proc.h>

namespace corvid::reference {

namespace {

using Scalars = std::u32string;

// One character: its bytes as they came, and its scalars in normalization form D.
struct Character {
    std::string bytes;
    Scalars decomposed;
    bool operator==(const Character& other) const { return decomposed == other.decomposed; }
};
using Characters = std::vector<Character>;

struct Scalar {
    std::string bytes;
    char32_t value;
};

// A text taken apart.
struct Text {
    Characters characters;
    Scalars decomposed;
};

std::optional<char32_t> wellFormed(std::string_view bytes) {
    utf8proc_int32_t value = 0;
    const auto* start = reinterpret_cast<const utf8proc_uint8_t*>(bytes.data());
    const auto length = static_cast<utf8proc_ssize_t>(bytes.size());
    if (utf8proc_iterate(start, length, &value) != length) {
        return std::nullopt;
    }
    return static_cast<char32_t>(value);
}

// Whether some bytes after these would make one scalar: tried, not reasoned.
bool couldBeginAScalar(std::string_view bytes) {
    if (bytes.size() >= 4) {
        return false;
    }
    for (const char next : {'\x80', '\x90', '\xA0'}) {
        const std::string longer = std::string(bytes) + next;
        if (wellFormed(longer) || couldBeginAScalar(longer)) {
            return true;
        }
    }
    return false;
}

std::vector<Scalar> scalarsOf(std::string_view text) {
    std::vector<Scalar> scalars;
    while (!text.empty()) {
        std::optional<char32_t> value;
        std::size_t length = 0;
        for (length = 1; length <= 4 && length <= text.size() && !value; ++length) {
            value = wellFormed(text.substr(0, length));
        }
        --length;
        if (!value) {
            value = 0xFFFD;
            length = 1;
            while (length < text.size() && couldBeginAScalar(text.substr(0, length + 1))) {
                ++length;
            }
        }
        scalars.push_back({std::string(text.substr(0, length)), *value});
        text.remove_prefix(length);
    }
    return scalars;
}

Scalars decomposed(const Scalars& scalars) {
    std::string bytes;
    for (const char32_t scalar : scalars) {
        std::array<utf8proc_uint8_t, 4> buffer{};
        const auto count =
            utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), buffer.data());
        bytes.append(buffer.begin(), buffer.begin() + count);
    }
    std::vector<utf8proc_int32_t> buffer(scalars.size() * 4 + 1);
    const auto count =
        utf8proc_decompose(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
                           static_cast<utf8proc_ssize_t>(bytes.size()), buffer.data(),
                           static_cast<utf8proc_ssize_t>(buffer.size()), UTF8PROC_DECOMPOSE);
    return {buffer.begin(), buffer.begin() + count};
}

Text takenApart(std::string_view text) {
    Text result;
    Scalars all;
    Scalars cluster;
    std::string bytes;
    utf8proc_int32_t state = 0;
    for (const Scalar& scalar : scalarsOf(text)) {
        if (!cluster.empty() &&
            utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(cluster.back()),
                                             static_cast<utf8proc_int32_t>(scalar.value), &state)) {
            result.characters.push_back({bytes, decomposed(cluster)});
            cluster.clear();
            bytes.clear();
        }
        all += scalar.value;
        cluster += scalar.value;
        bytes += scalar.bytes;
    }
    if (!cluster.empty()) {
        result.characters.push_back({bytes, decomposed(cluster)});
    }
    result.decomposed = decomposed(all);
    return result;
}

// Remembers what it took apart: the rules ask about the same few texts and literals over and over.
std::shared_ptr<const Text> textOf(std::string_view text) {
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void; // A text that is known is found without being copied.
    };
    constexpr std::size_t kRemembered = 1000;
    thread_local std::unordered_map<std::string, std::shared_ptr<const Text>, Hash, std::equal_to<>>
        known;
    if (const auto found = known.find(text); found != known.end()) {
        return found->second;
    }
    if (known.size() > kRemembered) {
        known.clear();
    }
    return known.emplace(text, std::make_shared<const Text>(takenApart(text))).first->second;
}

std::string bytesOf(const Characters& characters, std::size_t from, std::size_t to) {
    std::string bytes;
    for (std::size_t i = from; i < to; ++i) {
        bytes += characters[i].bytes;
    }
    return bytes;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == separator) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    return pieces;
}

std::string joined(const std::vector<std::string>& pieces, const std::string& separator) {
    std::string text;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        text += (i == 0 ? "" : separator) + pieces[i];
    }
    return text;
}

// The pieces between separators, without the empty ones at the end.
std::vector<std::string> trimmedPieces(std::string_view path) {
    std::vector<std::string> pieces = split(path, '/');
    while (!pieces.empty() && pieces.back().empty()) {
        pieces.pop_back();
    }
    return pieces;
}

bool startsWithSeparator(std::string_view path) {
    return !path.empty() && path[0] == '/';
}

std::string withoutSeparatorsAtTheEnd(std::string_view path) {
    const std::vector<std::string> pieces = trimmedPieces(path);
    return pieces.empty() && startsWithSeparator(path) ? "/" : joined(pieces, "/");
}

std::size_t countOf(const std::optional<std::vector<std::string>>& list) {
    return list ? list->size() : 0;
}

bool isIn(std::string_view text, const std::vector<std::string>& list) {
    for (const std::string& entry : list) {
        if (textEquals(text, entry)) {
            return true;
        }
    }
    return false;
}

// The characters of `text` with every run that equals `needle` taken out.
std::string without(std::string_view text, std::string_view needle) {
    const auto charactersText = textOf(text);
    const Characters& characters = charactersText->characters;
    const auto unwantedText = textOf(needle);
    const Characters& unwanted = unwantedText->characters;
    std::string kept;
    for (std::size_t i = 0; i < characters.size();) {
        bool found = i + unwanted.size() <= characters.size();
        for (std::size_t j = 0; found && j < unwanted.size(); ++j) {
            found = characters[i + j] == unwanted[j];
        }
        if (found) {
            i += unwanted.size();
        } else {
            kept += characters[i].bytes;
            ++i;
        }
    }
    return kept;
}

bool contains(std::string_view text, std::string_view needle) {
    return without(text, needle) != text;
}

bool isZs(char32_t scalar) {
    return utf8proc_category(static_cast<utf8proc_int32_t>(scalar)) == UTF8PROC_CATEGORY_ZS;
}

bool isWhitespaceOrNewline(char32_t scalar) {
    const Scalars others = U"\t\n\v\f\r\u0085\u2028\u2029";
    return isZs(scalar) || others.find(scalar) != Scalars::npos;
}

std::string lowercasedName(std::string_view name) {
    std::string lower;
    for (const Scalar& scalar : scalarsOf(name)) {
        if (scalar.value == 0x130) {
            lower += "i\u0307";
            continue;
        }
        std::array<utf8proc_uint8_t, 4> buffer{};
        const auto count = utf8proc_encode_char(
            utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar.value)), buffer.data());
        lower.append(buffer.begin(), buffer.begin() + count);
    }
    return lower;
}

} // namespace

std::size_t characterCount(std::string_view text) {
    return textOf(text)->characters.size();
}

bool textEquals(std::string_view a, std::string_view b) {
    return textOf(a)->decomposed == textOf(b)->decomposed;
}

bool beginsWith(std::string_view text, std::string_view prefix) {
    const auto allText = textOf(text);
    const Characters& all = allText->characters;
    const auto firstText = textOf(prefix);
    const Characters& first = firstText->characters;
    return first.size() <= all.size() && std::equal(first.begin(), first.end(), all.begin());
}

bool endsWith(std::string_view text, std::string_view suffix) {
    const auto allText = textOf(text);
    const Characters& all = allText->characters;
    const auto lastText = textOf(suffix);
    const Characters& last = lastText->characters;
    return last.size() <= all.size() && std::equal(last.rbegin(), last.rend(), all.rbegin());
}

std::string lastPathComponent(std::string_view path) {
    const std::vector<std::string> pieces = trimmedPieces(path);
    if (pieces.empty()) {
        return startsWithSeparator(path) ? "/" : "";
    }
    return pieces.back();
}

std::string pathExtension(std::string_view path) {
    const std::vector<std::string> pieces = split(lastPathComponent(path), '.');
    const bool onlyDotIsTheFirstCharacter = pieces.size() == 2 && pieces[0].empty();
    return pieces.size() == 1 || onlyDotIsTheFirstCharacter ? "" : pieces.back();
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
    std::vector<std::string> pieces = trimmedPieces(path);
    if (!pieces.empty()) {
        pieces.pop_back();
    }
    while (!pieces.empty() && pieces.back().empty()) {
        pieces.pop_back();
    }
    return pieces.empty() && startsWithSeparator(path) ? "/" : joined(pieces, "/");
}

std::string stringByDeletingPathExtension(std::string_view path) {
    const std::string trimmed = withoutSeparatorsAtTheEnd(path);
    const std::string extension = pathExtension(path);
    if (extension.empty()) {
        return trimmed;
    }
    return trimmed.substr(0, trimmed.size() - extension.size() - 1);
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> components;
    if (startsWithSeparator(path)) {
        components.emplace_back("/");
    }
    bool hasName = false;
    for (const std::string& piece : split(path, '/')) {
        if (!piece.empty()) {
            components.push_back(piece);
            hasName = true;
        }
    }
    if (hasName && path.back() == '/') {
        components.emplace_back("/");
    }
    return components;
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
    if (path.empty() || component.empty()) {
        return withoutSeparatorsAtTheEnd(path.empty() ? component : path);
    }
    while (startsWithSeparator(component)) {
        component.remove_prefix(1);
    }
    const std::string front = withoutSeparatorsAtTheEnd(path);
    return withoutSeparatorsAtTheEnd((front == "/" ? front : front + "/") + std::string(component));
}

std::optional<std::string> stringByAppendingPathExtension(std::string_view path,
                                                          std::string_view extension) {
    const std::string trimmed = withoutSeparatorsAtTheEnd(path);
    if (trimmed.empty() || trimmed == "/") {
        return std::nullopt;
    }
    return trimmed + "." + std::string(extension);
}

std::string truncateString(std::string_view text, std::size_t length, std::string_view trailing) {
    const auto charactersText = textOf(text);
    const Characters& characters = charactersText->characters;
    if (characters.size() <= length) {
        return std::string(text);
    }
    return bytesOf(characters, 0, length) + std::string(trailing);
}

std::string insertStringBeforeExtension(std::string_view path, std::string_view insert) {
    const std::string extension = pathExtension(path);
    const std::string dotted = extension.empty() ? "" : "." + extension;
    const std::string base = dotted.empty() ? std::string(path) : without(path, dotted);
    return base + " " + std::string(insert) + dotted;
}

std::string deletingPrefix(std::string_view text, std::string_view prefix) {
    if (!beginsWith(text, prefix)) {
        return std::string(text);
    }
    const auto charactersText = textOf(text);
    const Characters& characters = charactersText->characters;
    return bytesOf(characters, characterCount(prefix), characters.size());
}

bool isHidden(std::string_view path) {
    return beginsWith(lastPathComponent(path), ".");
}

bool isAnyParentHidden(std::string_view path) {
    if (textEquals(path, "/")) {
        return false;
    }
    for (const std::string& piece : split(stringByDeletingLastPathComponent(path), '/')) {
        if (beginsWith(piece, ".")) {
            return true;
        }
    }
    return false;
}

bool ignorable(std::string_view path) {
    return beginsWith(path, "/.") || beginsWith(path, ".") ||
           beginsWith(lastPathComponent(path), ".") || isAnyParentHidden(path);
}

bool forcePreemptiveAttributeNotFound(std::string_view path) {
    return textEquals(lowercasedName(lastPathComponent(path)), ".localized");
}

bool isTemporaryItem(std::string_view path) {
    if (textEquals(path, "/")) {
        return false;
    }
    if (beginsWith(path, "/.")) {
        return true;
    }
    if (beginsWith(path, ".")) {
        return true;
    }
    const std::string name = lastPathComponent(path);
    if (beginsWith(name, ".")) {
        return true;
    }
    const std::string parent = stringByDeletingLastPathComponent(path);
    for (const std::string& piece : split(parent, '/')) {
        if (beginsWith(piece, ".")) {
            return true;
        }
    }
    const std::string ext = pathExtension(path);
    const std::size_t partCount = countOf(allExtensions(path));
    if (beginsWith(name, "~$")) {
        if (isIn(ext, {"docx", "doc", "xlsx", "xls", "ppt", "pptx"})) {
            return true;
        }
    }
    if (beginsWith(name, "~") && textEquals(ext, "idlk")) {
        return true;
    }
    if (endsWith(ext, "~")) {
        return true;
    }
    if (partCount >= 2 && isAdobeEditedFile(ext)) {
        return true;
    }
    if (beginsWith(name, "(A Document Being Saved By")) {
        return true;
    }
    if (endsWith(name, "~.sketch")) {
        return true;
    }
    if (beginsWith(name, "~ai") && textEquals(ext, "tmp")) {
        return true;
    }
    if (partCount < 2 && beginsWith(name, "Adobe Photoshop ")) {
        return true;
    }
    if (beginsWith(name, "AEtemp-")) {
        return true;
    }
    if (partCount > 2 && endsWith(name, "aep")) {
        return true;
    }
    if (beginsWith(name, "TestFile") && textEquals(ext, "") && characterCount(path) >= 17) {
        return true;
    }
    if (textEquals(ext, "tmp$$")) {
        return true;
    }
    if (beginsWith(name, "Word Work File") && textEquals(ext, "tmp")) {
        return true;
    }
    if (beginsWith(name, "~WR")) {
        return true;
    }
    if (isEmpty(ext) && endsWith(path, "C920")) {
        return true;
    }
    if (beginsWith(name, "Acr") && textEquals(ext, "tmp")) {
        return true;
    }
    if (textEquals(ext, "download")) {
        return true;
    }
    if (textEquals(ext, "crdownload")) {
        return true;
    }
    if (partCount > 2 && endsWith(ext, "part")) {
        return true;
    }
    if (partCount > 2 && beginsWith(ext, "sb-")) {
        return true;
    }
    const auto parentParts = allExtensions(parent);
    if (parentParts && parentParts->size() >= 3 && beginsWith(pathExtension(parent), "sb-")) {
        return true;
    }
    if (textEquals(ext, "swap")) {
        return true;
    }
    return isAutoCADTmpFile(path);
}

std::optional<std::vector<std::string>> allExtensions(std::string_view path) {
    if (textEquals(path, "/")) {
        return std::nullopt;
    }
    return split(lastPathComponent(path), '.');
}

bool isEmpty(std::string_view text) {
    if (textEquals(text, "")) {
        return true;
    }
    for (const Scalar& scalar : scalarsOf(text)) {
        if (scalar.value != '\t' && !isZs(scalar.value)) {
            return false;
        }
    }
    return true;
}

bool isAutoCADTmpFile(std::string_view path) {
    const std::string name = lastPathComponent(path);
    const std::string e = pathExtension(path);
    if (beginsWith(e, "dwl")) {
        return true;
    }
    if (textEquals(e, "tmp")) {
        return true;
    }
    if (textEquals(e, "bak")) {
        return true;
    }
    if (!e.empty()) {
        return false;
    }
    if (beginsWith(name, "atemp")) {
        return true;
    }
    return beginsWith(name, "atmp");
}

bool isAdobeEditedFile(std::string_view extension) {
    const auto charactersText = textOf(extension);
    const Characters& characters = charactersText->characters;
    if (characters.size() < 11) {
        return false;
    }
    const std::string last = bytesOf(characters, characters.size() - 10, characters.size());
    static const std::regex kInteger("[+-]?[0-9]+");
    if (!std::regex_match(last, kInteger)) {
        return false;
    }
    for (const char* prefix :
         {"pdf", "psd", "ps", "jpg", "jpeg", "png", "ers", "prn", "ai", "ait"}) {
        if (beginsWith(extension, prefix)) {
            return true;
        }
    }
    return beginsWith(extension, "i");
}

bool isTemporaryOnTheBasisOf(std::string_view source, std::string_view destination) {
    if (isEmpty(pathExtension(destination)) && beginsWith(pathExtension(source), "xls")) {
        return true;
    }
    const auto parts = allExtensions(destination);
    const std::string ext = pathExtension(destination);
    if (parts && parts->size() >= 3 && (endsWith(ext, "download") || endsWith(ext, "part"))) {
        if (beginsWith(destination, stringByDeletingPathExtension(source))) {
            return true;
        }
    }
    if (isTemporaryItem(destination)) {
        return true;
    }
    if (beginsWith(pathExtension(source), "ppt")) {
        return beginsWith(destination, stringByDeletingPathExtension(source));
    }
    return false;
}

bool pathStartingWithDocumentBeingSavedBy(std::string_view path) {
    return beginsWith(path, "(A Document Being Saved By");
}

bool isAdobeFile(std::string_view path) {
    return isIn(pathExtension(path), {"pdf", "psd", "ps", "eps", "prn", "indd", "indl", "indt",
                                      "indb", "indx", "ai", "ait"});
}

bool isMediaType(std::string_view path) {
    return isIn(lowercasedName(pathExtension(path)),
                {"bmp", "raw", "cr2", "crw", "dng", "nef", "dwg", "gif", "jpg", "jpeg", "png",
                 "tiff", "avi", "m4v", "mov", "mp4", "wmv"});
}

bool isWatermarkEligible(std::string_view path) {
    return isIn(pathExtension(path), {"ppt",  "potm", "potx", "ppam", "ppt",  "ppsm", "ppsx",
                                      "pptm", "pptx", "doc",  "docm", "doct", "docx", "xlsx",
                                      "xlam", "xlsb", "xlsm", "xltm", "xltx", "xls",  "pdf"});
}

bool isEligibleForInUseCheck(std::string_view path) {
    return isIn(pathExtension(path),
                {"csv",     "doc",   "docm", "docx",   "htm",  "html", "key",  "md",
                 "numbers", "pages", "ppt",  "pptx",   "rtf",  "slk",  "tif",  "xls",
                 "xlsb",    "xlsm",  "xlsx", "xml",    "aaf",  "aep",  "aepx", "aet",
                 "ai",      "ait",   "amx",  "eps",    "indb", "indd", "indl", "indt",
                 "indx",    "pdf",   "prn",  "prproj", "ps",   "psd",  "dwg"});
}

bool isOfficeFile(std::string_view path) {
    return isIn(pathExtension(path),
                {"doc",  "dot",  "wbk",  "docx", "docm", "dotx", "dotm", "docb", "wll",  "xls",
                 "xlt",  "xlm",  "xll_", "xla_", "xla5", "xla8", "xlsx", "xlsm", "xltx", "xlsb",
                 "xla",  "xll",  "xlw",  "ppt",  "pot",  "pps",  "ppa",  "ppam", "pptx", "pptm",
                 "potx", "potm", "ppam", "ppsx", "ppsm", "sldx", "sldm", "pa"});
}

bool isCoeditSupported(std::string_view path) {
    return isIn(pathExtension(path), {"docx", "docm", "xlsx", "xlsm", "xlsb", "pptx", "ppsx"});
}

bool isCompressedFile(std::string_view path) {
    return isIn(pathExtension(path), {"zip", "rar", "7z", "deb", "pkg", "rpm", "gz", "z"});
}

std::string getOfficeLockFile(std::string_view name) {
    return "~$" + std::string(name);
}

bool isEmail(std::string_view text) {
    static const std::regex kPattern("[A-Z0-9a-z._%+-]+@[A-Za-z0-9.-]+\\.[A-Za-z]{2,20}");
    return std::regex_match(text.begin(), text.end(), kPattern);
}

std::string toBase64(std::string_view text) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bits;
    for (const char c : text) {
        bits += std::bitset<8>(static_cast<unsigned char>(c)).to_string();
    }
    std::string result;
    while (bits.size() % 6 != 0) {
        bits += '0';
    }
    for (std::size_t i = 0; i < bits.size(); i += 6) {
        result += alphabet[std::bitset<6>(bits, i, 6).to_ulong()];
    }
    while (result.size() % 4 != 0) {
        result += '=';
    }
    return result;
}

std::optional<std::string> fromBase64(std::string_view text) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string digits(text);
    for (int i = 0; i < 2 && !digits.empty() && digits.back() == '='; ++i) {
        digits.pop_back();
    }
    std::string bits;
    for (const char c : digits) {
        const std::size_t value = alphabet.find(c);
        if (value == std::string::npos) {
            return std::nullopt;
        }
        bits += std::bitset<6>(value).to_string();
    }
    std::string bytes;
    for (std::size_t i = 0; i + 8 <= bits.size(); i += 8) {
        bytes += static_cast<char>(std::bitset<8>(bits, i, 8).to_ulong());
    }
    for (const Scalar& scalar : scalarsOf(bytes)) {
        if (scalar.value == 0xFFFD && scalar.bytes != "\uFFFD") {
            return std::nullopt;
        }
    }
    return bytes;
}

std::vector<int> colorFromHex(std::string_view text) {
    std::vector<Scalar> scalars = scalarsOf(text);
    while (!scalars.empty() && isWhitespaceOrNewline(scalars.back().value)) {
        scalars.pop_back();
    }
    while (!scalars.empty() && isWhitespaceOrNewline(scalars.front().value)) {
        scalars.erase(scalars.begin());
    }
    // The capitals of these are two letters or three. Which ones they are in Greek and Armenian
    // does not matter here: none is a digit.
    const auto severalCapitals = [](char32_t scalar) -> Scalars {
        static const std::vector<std::pair<char32_t, Scalars>> kLatin = {
            {0x00DF, U"SS"}, {0x0149, U"\u02BCN"}, {0x1E9A, U"A\u02BE"}, {0xFB00, U"FF"},
            {0xFB01, U"FI"}, {0xFB02, U"FL"},      {0xFB03, U"FFI"},     {0xFB04, U"FFL"},
            {0xFB05, U"ST"}, {0xFB06, U"ST"}};
        for (const auto& [letter, capitals] : kLatin) {
            if (letter == scalar) {
                return capitals;
            }
        }
        static const Scalars kGreek = U"\u1FB2\u1FB3\u1FB4\u1FB7\u1FBC\u1FC2\u1FC3\u1FC4\u1FC7"
                                      U"\u1FCC\u1FF2\u1FF3\u1FF4\u1FF7\u1FFC";
        if ((scalar >= 0x1F80 && scalar <= 0x1FAF) || kGreek.find(scalar) != Scalars::npos) {
            return U"\u0391\u0399";
        }
        if (scalar == 0x0587 || (scalar >= 0xFB13 && scalar <= 0xFB17)) {
            return U"\u0544\u0546";
        }
        return {};
    };
    std::string capitals;
    const auto append = [&capitals](char32_t scalar) {
        std::array<utf8proc_uint8_t, 4> buffer{};
        const auto count =
            utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), buffer.data());
        capitals.append(buffer.begin(), buffer.begin() + count);
    };
    for (const Scalar& scalar : scalars) {
        const Scalars several = severalCapitals(scalar.value);
        std::for_each(several.begin(), several.end(), append);
        if (several.empty()) {
            append(static_cast<char32_t>(
                utf8proc_toupper(static_cast<utf8proc_int32_t>(scalar.value))));
        }
    }
    if (beginsWith(capitals, "#")) {
        capitals.erase(0, 1);
    }
    if (characterCount(capitals) != 6) {
        return {};
    }
    std::vector<Scalar> digits = scalarsOf(capitals);
    while (!digits.empty() && isWhitespaceOrNewline(digits.front().value)) {
        digits.erase(digits.begin());
    }
    if (digits.size() >= 2 && digits[0].value == '0' && digits[1].value == 'X') {
        digits.erase(digits.begin(), digits.begin() + 2);
    }
    const Scalars hexadecimal = U"0123456789ABCDEF";
    unsigned long number = 0;
    for (const Scalar& digit : digits) {
        const std::size_t value = hexadecimal.find(digit.value);
        if (value == Scalars::npos) {
            break;
        }
        number = number * 16 + value;
    }
    return {static_cast<int>(number / 65536 % 256), static_cast<int>(number / 256 % 256),
            static_cast<int>(number % 256)};
}

bool containsInvalidPlatformFileNameCharacters(std::string_view text) {
    for (const Scalar& scalar : scalarsOf(text)) {
        if (scalar.value <= 0x1F || Scalars(U"\"<>|:*?\\").find(scalar.value) != Scalars::npos) {
            return true;
        }
    }
    return false;
}

bool isExtractedZip(std::string_view path) {
    const std::string name = lastPathComponent(path);
    return contains(name, ".BAH") || beginsWith(name, ".AU.");
}

bool isLoggable(std::string_view path) {
    if (isIn(path,
             {"/", "/Personal Folders", "/Shared Folders", "/Favorites", "/Personal Cloud"})) {
        return false;
    }
    if (beginsWith(path, "/.") || beginsWith(path, ".")) {
        return false;
    }
    if (beginsWith(lastPathComponent(path), ".")) {
        return false;
    }
    return !isAnyParentHidden(path);
}

std::string reduceToItemIDComponent(std::string_view path) {
    return without(without(split(path, '/').back(), "Items("), ")");
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

} // namespace corvid::reference
