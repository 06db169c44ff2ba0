#include "App/Reporting/LogRedactor.h"

#include "Core/Base/PrintableText.h"
#include "Core/Base/SipHash.h"
#include "Core/Base/URL.h"
#include "Core/Base/VolumeMapping.h"

#include <algorithm>
#include <cstddef>

namespace corvid {

namespace {

constexpr std::size_t kDigits = 10;
/// What is longer than this, or no plain word, is more than an extension may tell.
constexpr std::size_t kLongestExtension = 8;

bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

/// The extension with its dot, if it is one that may be shown.
std::string_view shownExtension(std::string_view component) {
    const std::size_t dot = component.rfind('.');
    if (dot == std::string_view::npos || dot == 0) {
        return {};
    }
    const std::string_view extension = component.substr(dot + 1);
    const bool isPlain = !extension.empty() && extension.size() <= kLongestExtension &&
                         std::all_of(extension.begin(), extension.end(), isAlphanumeric);
    return isPlain ? component.substr(dot) : std::string_view();
}

} // namespace

LogRedactor::LogRedactor(const Key& key, const std::vector<std::string>& folders) : key_(key) {
    addRoot(kVolumeRoot);
    for (const std::string& folder : folders) {
        addRoot(folder);
    }
}

void LogRedactor::addRoot(std::string_view folder) {
    while (folder.ends_with('/')) {
        folder.remove_suffix(1);
    }
    if (folder.empty()) {
        return;
    }
    if (const auto url = URL::fileURL(folder)) {
        roots_.push_back({std::string(url->absoluteString()), true});
    }
    roots_.push_back({printableText(folder), false});
}

std::string LogRedactor::redacted(std::string_view line) const {
    std::string_view ending;
    if (line.ends_with('\n')) {
        ending = "\n";
        line.remove_suffix(1);
    }
    std::string out;
    for (;;) {
        std::size_t begin = std::string_view::npos;
        const Root* root = nullptr;
        for (const Root& candidate : roots_) {
            if (const std::size_t found = line.find(candidate.text); found < begin) {
                begin = found;
                root = &candidate;
            }
        }
        if (root == nullptr) {
            return out.append(line).append(ending);
        }
        const std::size_t below = begin + root->text.size();
        out += line.substr(0, below);
        const bool isURL = root->isURL;
        line.remove_prefix(below);
        // "/Volumes/Corvid2" is another volume.
        if (!line.starts_with('/')) {
            continue;
        }
        std::size_t end = isURL ? std::min(line.find_first_of(" ]\""), line.size()) : line.size();
        if (isURL && line.substr(end).starts_with(' ') && line.substr(0, end).ends_with(',')) {
            --end; // the comma of a list
        }
        out += redactedPath(line.substr(0, end), isURL);
        line.remove_prefix(end);
    }
}

std::string LogRedactor::redactedPath(std::string_view path, bool isURL) const {
    std::string out;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        const std::string_view component = path.substr(0, slash);
        // In a log line a path is escaped already; a URL's percent escapes hide the same bytes.
        out += isURL ? redactedComponent(printableText(percentDecoded(component)))
                     : redactedComponent(component);
        out += path.substr(slash, 1);
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return out;
}

std::string LogRedactor::redactedComponent(std::string_view component) const {
    if (component.empty()) {
        return {};
    }
    constexpr char kHexDigits[] = "0123456789abcdef";
    std::uint64_t hash = sipHash(key_, component);
    std::string out;
    for (std::size_t i = 0; i < kDigits; ++i, hash >>= 4U) {
        out += kHexDigits[hash & 0x0FU];
    }
    return out.append(shownExtension(component));
}

} // namespace corvid
