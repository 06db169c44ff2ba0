#include "Core/Base/URL.h"

#include "Core/Base/UTF8.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace corvid {

struct URL::Resolved {
    URL base;
    std::string absolute;
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

// The parts of a URL that differ in the characters that stand there as they are.
enum Part : std::uint8_t {
    kHost = 1,
    kUserInfo = 2,
    kPath = 4,
    kQuery = 8, // And the fragment.
};

// The parts in which a character may not stand. A table, because every URL of every message is
// checked; of refusals, so that those of several characters add up.
constexpr auto kRefused = [] {
    std::array<std::uint8_t, 256> refused{};
    for (std::size_t i = 0; i < refused.size(); ++i) {
        const auto c = static_cast<char>(i);
        const bool isPlain = isUnreserved(c) || isSubDelimiter(c);
        refused[i] = isPlain ? 0 : kHost | kUserInfo | kPath | kQuery;
    }
    refused[':'] = kHost;
    refused['@'] = refused['/'] = kHost | kUserInfo;
    refused['?'] = kHost | kUserInfo | kPath;
    return refused;
}();

// Only percent escapes and characters that may stand in `part`.
bool isMadeOf(std::string_view text, Part part) {
    const auto refused = [](const char* at) { return kRefused[static_cast<unsigned char>(*at)]; };
    const char* const end = text.data() + text.size();
    for (const char* at = text.data();; at += 3) {
        while (end - at >= 4 &&
               ((refused(at) | refused(at + 1) | refused(at + 2) | refused(at + 3)) & part) == 0) {
            at += 4;
        }
        while (at != end && (refused(at) & part) == 0) {
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
        if (!isMadeOf(authority.substr(0, at), kUserInfo)) {
            return false;
        }
        authority.remove_prefix(at + 1);
    }
    std::size_t hostEnd = std::min(authority.find(':'), authority.size());
    if (authority.starts_with('[')) {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos || close == 1 || authority.find('%') < close ||
            !isMadeOf(authority.substr(1, close - 1), kUserInfo)) {
            return false;
        }
        hostEnd = close + 1;
    } else if (!isMadeOf(authority.substr(0, hostEnd), kHost)) {
        return false;
    }
    const std::string_view port = authority.substr(hostEnd);
    return port.empty() ||
           (port.front() == ':' && std::all_of(port.begin() + 1, port.end(), isDigit));
}

bool isReference(const Components& parts) {
    return (!parts.scheme || isScheme(*parts.scheme)) &&
           (!parts.authority || isAuthority(*parts.authority)) && isMadeOf(parts.path, kPath) &&
           isMadeOf(parts.query.value_or(""), kQuery) &&
           isMadeOf(parts.fragment.value_or(""), kQuery);
}

// A file URL without host, query and fragment, which nearly all are: what follows is all path.
bool isPlainFileURL(std::string_view text) {
    constexpr std::string_view kStart = "file:///";
    return text.starts_with(kStart) && isMadeOf(text.substr(kStart.size()), kPath);
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

// `name` is all small letters.
bool isInAnyCase(std::string_view text, std::string_view name) {
    return std::equal(text.begin(), text.end(), name.begin(), name.end(),
                      [](char a, char b) { return (a | 0x20) == b; });
}

bool isFileScheme(const std::optional<std::string_view>& scheme) {
    return scheme && isInAnyCase(*scheme, "file");
}

} // namespace

URL URL::holding(std::string_view text, std::unique_ptr<const Resolved> resolved) {
    static_assert(std::is_trivially_destructible_v<Parts>);
    void* const memory = ::operator new(sizeof(Parts) + text.size());
    const auto* const parts = ::new (memory) Parts{1, resolved.release(), text.size()};
    std::memcpy(static_cast<char*>(memory) + sizeof(Parts), text.data(), text.size());
    return URL(parts);
}

void URL::destroy(const Parts* parts) noexcept {
    delete parts->resolved;
    ::operator delete(const_cast<Parts*>(parts), sizeof(Parts) + parts->textSize);
}

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
    if (!isPlainFileURL(text) && (text.empty() || !isReference(split(text)))) {
        return std::nullopt;
    }
    return holding(text, nullptr);
}

std::optional<URL> URL::fromText(std::string_view text, const URL& base) {
    const Components reference = split(text);
    if (reference.scheme) {
        return fromText(text);
    }
    if (!isReference(reference)) {
        return std::nullopt;
    }
    auto absolute = std::make_unique<const Resolved>(
        Resolved{base, resolved(reference, split(base.absoluteString()))});
    return holding(text, std::move(absolute));
}

std::string_view URL::absoluteString() const {
    return parts_->resolved != nullptr ? parts_->resolved->absolute : relativeString();
}

std::string_view URL::relativeString() const {
    return {reinterpret_cast<const char*>(parts_ + 1), parts_->textSize};
}

const URL* URL::base() const {
    return parts_->resolved != nullptr ? &parts_->resolved->base : nullptr;
}

std::string URL::path() const {
    return pathOf(split(absoluteString()).path);
}

bool URL::isFileURL() const {
    return isFileScheme(split(absoluteString()).scheme);
}

bool URL::isOfOtherHost() const {
    // RFC 8089, section 2.
    const std::string_view authority = split(absoluteString()).authority.value_or("");
    return !authority.empty() && !isInAnyCase(authority, "localhost");
}

bool URL::hasDirectoryPath() const {
    return split(absoluteString()).path.ends_with('/');
}

bool operator==(const URL& a, const URL& b) {
    if (a.parts_ == b.parts_) {
        return true;
    }
    const URL* const base = a.base();
    const URL* const other = b.base();
    return a.relativeString() == b.relativeString() && (base != nullptr) == (other != nullptr) &&
           (base == nullptr || *base == *other);
}

} // namespace corvid
