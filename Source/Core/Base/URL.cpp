#include "Core/Base/URL.h"

#include "Core/Base/UTF8.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace corvid {

struct URL::Parts {
    std::string text;
    std::optional<URL> base;
    std::string absolute; // empty without a base: the text is
    std::string path;
    bool isFile = false;
    bool isDirectory = false;
};

namespace {

constexpr char kEscapeDigits[] = "0123456789ABCDEF";

constexpr bool isAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr int hexValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

constexpr bool isOneOf(char c, std::string_view set) {
    return set.find(c) != std::string_view::npos;
}

// RFC 3986, section 2.3 and 2.2.
constexpr bool isUnreserved(char c) {
    return isAlpha(c) || isDigit(c) || isOneOf(c, "-._~");
}

constexpr bool isSubDelimiter(char c) {
    return isOneOf(c, "!$&'()*+,;=");
}

// What a character may stand for. A table, because every URL of every message is checked.
enum CharacterClass : std::uint8_t {
    kPlain = 1,
    kColon = 2,
    kAt = 4,
    kSlash = 8,
    kQuestionMark = 16,
};

constexpr auto kCharacterClasses = [] {
    std::array<std::uint8_t, 256> classes{};
    for (std::size_t i = 0; i < classes.size(); ++i) {
        const auto c = static_cast<char>(i);
        if (isUnreserved(c) || isSubDelimiter(c)) {
            classes[i] = kPlain;
        }
    }
    classes[':'] = kColon;
    classes['@'] = kAt;
    classes['/'] = kSlash;
    classes['?'] = kQuestionMark;
    return classes;
}();

// Only unreserved characters, sub-delimiters, percent escapes and those of the classes in `more`.
bool isMadeOf(std::string_view text, unsigned more) {
    const unsigned allowed = kPlain | more;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data();; at += 3) {
        while (at != end && (kCharacterClasses[static_cast<unsigned char>(*at)] & allowed) != 0) {
            ++at;
        }
        if (at == end) {
            return true;
        }
        if (*at != '%' || end - at < 3 || hexValue(at[1]) < 0 || hexValue(at[2]) < 0) {
            return false;
        }
    }
}

// The five components of RFC 3986, section 3; each without its delimiter, absent when that is.
struct Components {
    std::optional<std::string_view> scheme;
    std::optional<std::string_view> authority;
    std::string_view path;
    std::optional<std::string_view> query;
    std::optional<std::string_view> fragment;
};

// Takes what follows the first `delimiter` off `text`.
std::optional<std::string_view> takeTail(std::string_view& text, char delimiter) {
    const std::size_t at = text.find(delimiter);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view tail = text.substr(at + 1);
    text = text.substr(0, at);
    return tail;
}

Components split(std::string_view text) {
    Components parts;
    parts.fragment = takeTail(text, '#');
    parts.query = takeTail(text, '?');
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos && colon < text.find('/')) {
        parts.scheme = text.substr(0, colon);
        text.remove_prefix(colon + 1);
    }
    if (text.starts_with("//")) {
        text.remove_prefix(2);
        const std::size_t end = std::min(text.find('/'), text.size());
        parts.authority = text.substr(0, end);
        text.remove_prefix(end);
    }
    parts.path = text;
    return parts;
}

bool isScheme(std::string_view scheme) {
    return !scheme.empty() && isAlpha(scheme.front()) &&
           std::all_of(scheme.begin(), scheme.end(),
                       [](char c) { return isAlpha(c) || isDigit(c) || isOneOf(c, "+-."); });
}

bool isAuthority(std::string_view authority) {
    if (const std::size_t at = authority.find('@'); at != std::string_view::npos) {
        if (!isMadeOf(authority.substr(0, at), kColon)) {
            return false;
        }
        authority.remove_prefix(at + 1);
    }
    std::size_t hostEnd = std::min(authority.find(':'), authority.size());
    if (authority.starts_with('[')) {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos || close == 1 || authority.find('%') < close ||
            !isMadeOf(authority.substr(1, close - 1), kColon)) {
            return false;
        }
        hostEnd = close + 1;
    } else if (!isMadeOf(authority.substr(0, hostEnd), 0)) {
        return false;
    }
    const std::string_view port = authority.substr(hostEnd);
    return port.empty() ||
           (port.front() == ':' && std::all_of(port.begin() + 1, port.end(), isDigit));
}

bool isReference(const Components& parts) {
    return (!parts.scheme || isScheme(*parts.scheme)) &&
           (!parts.authority || isAuthority(*parts.authority)) &&
           isMadeOf(parts.path, kColon | kAt | kSlash) &&
           isMadeOf(parts.query.value_or(""), kColon | kAt | kSlash | kQuestionMark) &&
           isMadeOf(parts.fragment.value_or(""), kColon | kAt | kSlash | kQuestionMark);
}

// RFC 3986, section 5.2.4.
std::string removeDotSegments(std::string_view in) {
    std::string out;
    const auto dropLastSegment = [&out] {
        const std::size_t slash = out.rfind('/');
        out.resize(slash == std::string::npos ? 0 : slash);
    };
    while (!in.empty()) {
        if (in.starts_with("../")) {
            in.remove_prefix(3);
        } else if (in.starts_with("./") || in.starts_with("/./")) {
            in.remove_prefix(2);
        } else if (in == "/.") {
            in = "/";
        } else if (in.starts_with("/../")) {
            in.remove_prefix(3);
            dropLastSegment();
        } else if (in == "/..") {
            in = "/";
            dropLastSegment();
        } else if (in == "." || in == "..") {
            in = {};
        } else {
            const std::size_t end = std::min(in.find('/', 1), in.size());
            out += in.substr(0, end);
            in.remove_prefix(end);
        }
    }
    return out;
}

// RFC 3986, section 5.2.3.
std::string mergedPath(const Components& base, std::string_view path) {
    if (base.authority && base.path.empty()) {
        return "/" + std::string(path);
    }
    const std::size_t slash = base.path.rfind('/');
    const std::size_t kept = slash == std::string_view::npos ? 0 : slash + 1;
    return std::string(base.path.substr(0, kept)) + std::string(path);
}

// RFC 3986, section 5.2.2 and 5.3; `reference` has no scheme.
std::string resolved(const Components& reference, const Components& base) {
    std::optional<std::string_view> authority = base.authority;
    std::optional<std::string_view> query = reference.query;
    std::string path;
    if (reference.authority) {
        authority = reference.authority;
        path = removeDotSegments(reference.path);
    } else if (reference.path.empty()) {
        path = base.path;
        query = reference.query ? reference.query : base.query;
    } else if (reference.path.starts_with('/')) {
        path = removeDotSegments(reference.path);
    } else {
        path = removeDotSegments(mergedPath(base, reference.path));
    }

    std::string text;
    const auto append = [&text](std::string_view before,
                                const std::optional<std::string_view>& part,
                                std::string_view after) {
        if (part) {
            text.append(before).append(*part).append(after);
        }
    };
    append("", base.scheme, ":");
    append("//", authority, "");
    if (!authority && path.starts_with("//")) {
        text += "/."; // else the path would be read as an authority (section 3.3)
    }
    text += path;
    append("?", query, "");
    append("#", reference.fragment, "");
    return text;
}

std::string_view withoutFinalSeparators(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    return path;
}

// The caller has checked the escapes.
std::string unescaped(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%')) {
        bytes += text.substr(0, at);
        bytes += static_cast<char>(hexValue(text[at + 1]) * 16 + hexValue(text[at + 2]));
        text.remove_prefix(at + 3);
    }
    bytes += text;
    return bytes;
}

std::string pathOf(std::string_view escapedPath) {
    std::string path = unescaped(withoutFinalSeparators(escapedPath));
    if (path.find('\0') != std::string::npos || !isValidUTF8(path)) {
        return {};
    }
    return path;
}

bool isFileScheme(const std::optional<std::string_view>& scheme) {
    constexpr std::string_view kFile = "file";
    return scheme && std::equal(scheme->begin(), scheme->end(), kFile.begin(), kFile.end(),
                                [](char a, char b) { return (a | 0x20) == b; });
}

} // namespace

URL::URL(std::shared_ptr<const Parts> parts) : parts_(std::move(parts)) {}

std::optional<URL> URL::fileURL(std::string_view path, bool isDirectory) {
    if (!path.starts_with('/') || path.find('\0') != std::string_view::npos || !isValidUTF8(path)) {
        return std::nullopt;
    }
    std::string text = "file://";
    for (const char c : withoutFinalSeparators(path)) {
        // ";" would be allowed in a path, but the platform escapes it.
        if (isUnreserved(c) || (isSubDelimiter(c) && c != ';') || isOneOf(c, ":@/")) {
            text += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            text += '%';
            text += kEscapeDigits[byte >> 4U];
            text += kEscapeDigits[byte & 0x0FU];
        }
    }
    if (isDirectory && !text.ends_with('/')) {
        text += '/';
    }
    return fromText(text);
}

std::optional<URL> URL::fromText(std::string_view text) {
    const Components components = split(text);
    if (text.empty() || !isReference(components)) {
        return std::nullopt;
    }
    auto parts = std::make_shared<Parts>();
    parts->text = text;
    parts->path = pathOf(components.path);
    parts->isFile = isFileScheme(components.scheme);
    parts->isDirectory = components.path.ends_with('/');
    return URL(std::move(parts));
}

std::optional<URL> URL::fromText(std::string_view text, const URL& base) {
    const Components reference = split(text);
    if (reference.scheme) {
        return fromText(text);
    }
    if (!isReference(reference)) {
        return std::nullopt;
    }
    auto parts = std::make_shared<Parts>();
    parts->text = text;
    parts->base = base;
    parts->absolute = resolved(reference, split(base.absoluteString()));
    const Components components = split(parts->absolute);
    parts->path = pathOf(components.path);
    parts->isFile = isFileScheme(components.scheme);
    parts->isDirectory = components.path.ends_with('/');
    return URL(std::move(parts));
}

const std::string& URL::absoluteString() const {
    return parts_->base ? parts_->absolute : parts_->text;
}

const std::string& URL::relativeString() const {
    return parts_->text;
}

const URL* URL::base() const {
    return parts_->base ? &*parts_->base : nullptr;
}

const std::string& URL::path() const {
    return parts_->path;
}

bool URL::isFileURL() const {
    return parts_->isFile;
}

bool URL::hasDirectoryPath() const {
    return parts_->isDirectory;
}

bool operator==(const URL& a, const URL& b) {
    if (a.parts_ == b.parts_) {
        return true;
    }
    return a.parts_->text == b.parts_->text && a.parts_->base == b.parts_->base;
}

} // namespace corvid
