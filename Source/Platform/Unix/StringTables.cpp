#include "Platform/Unix/StringTables.h"

#include "Core/Base/FileContents.h"
#include "Core/Base/UTF8.h"

#include <algorithm>
#include <filesystem>

namespace corvid {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kDevelopmentLanguage = "en";

bool isBare(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

std::optional<unsigned> hexadecimalDigit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned>(c - 'A') + 10;
    }
    return std::nullopt;
}

// Reads tokens off the front of a table's source; each take… is empty-handed when something else
// stands there, and leaves the source as it was.
class Reader {
public:
    explicit Reader(std::string_view source) : rest_(source) {}

    bool atEnd() const { return rest_.empty(); }

    // False when a comment does not end.
    bool skipBlanksAndComments() {
        for (;;) {
            rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
            if (rest_.starts_with("//")) {
                rest_.remove_prefix(std::min(rest_.find_first_of("\r\n"), rest_.size()));
            } else if (rest_.starts_with("/*")) {
                const std::size_t end = rest_.find("*/", 2);
                if (end == std::string_view::npos) {
                    return false;
                }
                rest_.remove_prefix(end + 2);
            } else {
                return true;
            }
        }
    }

    bool take(char c) {
        if (!rest_.starts_with(c)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    std::optional<std::string> takeText() {
        if (take('"')) {
            return takeQuoted();
        }
        const auto end = std::find_if_not(rest_.begin(), rest_.end(), isBare);
        const std::string text(rest_.begin(), end);
        rest_.remove_prefix(text.size());
        return text.empty() ? std::nullopt : std::optional(text);
    }

private:
    std::optional<std::string> takeQuoted() {
        std::string text;
        while (!rest_.empty()) {
            const char c = rest_.front();
            rest_.remove_prefix(1);
            if (c == '"') {
                return text;
            }
            if (c != '\\') {
                text += c;
            } else if (!takeEscape(text)) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

    bool takeEscape(std::string& text) {
        if (rest_.empty()) {
            return false;
        }
        const char c = rest_.front();
        rest_.remove_prefix(1);
        switch (c) {
        case 'n':
            text += '\n';
            return true;
        case 'r':
            text += '\r';
            return true;
        case 't':
            text += '\t';
            return true;
        case 'U':
        case 'u':
            return takeUTF16(text);
        default:
            text += c;
            return true;
        }
    }

    // Up to four hexadecimal digits, and the other half when they are one of a surrogate pair.
    bool takeUTF16(std::string& text) {
        char32_t scalar = takeCodeUnit();
        if (scalar >= 0xD800 && scalar <= 0xDBFF) {
            if (!take('\\') || !(take('U') || take('u'))) {
                return false;
            }
            const char32_t low = takeCodeUnit();
            if (low < 0xDC00 || low > 0xDFFF) {
                return false;
            }
            scalar = 0x10000 + ((scalar - 0xD800) << 10U) + (low - 0xDC00);
        } else if (scalar >= 0xDC00 && scalar <= 0xDFFF) {
            return false;
        }
        appendUTF8(text, scalar);
        return true;
    }

    char32_t takeCodeUnit() {
        char32_t unit = 0;
        for (int digits = 0; digits < 4 && !rest_.empty(); ++digits) {
            const std::optional<unsigned> digit = hexadecimalDigit(rest_.front());
            if (!digit) {
                break;
            }
            unit = unit * 16 + *digit;
            rest_.remove_prefix(1);
        }
        return unit;
    }

    std::string_view rest_;
};

// "de" of "de_AT.UTF-8@euro", with its country or script as "AT".
struct Locale {
    std::string language;
    std::string variant;
};

Locale parseLocale(std::string_view name) {
    name = name.substr(0, name.find_first_of(".@"));
    const std::size_t separator = name.find_first_of("_-");
    Locale locale{std::string(name.substr(0, separator)), {}};
    if (separator != std::string_view::npos) {
        locale.variant = name.substr(separator + 1);
    }
    return locale;
}

bool isPlainLocale(std::string_view name) {
    return name == "C" || name == "POSIX";
}

void appendNames(std::vector<std::string>& names, std::string_view localeName) {
    const Locale locale = parseLocale(localeName);
    // A locale's name becomes a folder's name: nothing that leads elsewhere.
    if (locale.language.empty() || isPlainLocale(locale.language) ||
        localeName.find('/') != std::string_view::npos) {
        return;
    }
    if (!locale.variant.empty()) {
        names.push_back(locale.language + "-" + locale.variant);
    }
    if (locale.language != "zh") {
        names.push_back(locale.language);
        return;
    }
    const bool isTraditional =
        locale.variant.starts_with("TW") || locale.variant.starts_with("HK") ||
        locale.variant.starts_with("MO") || locale.variant.starts_with("Hant");
    names.emplace_back(isTraditional ? "zh-Hant" : "zh-Hans");
}

} // namespace

std::optional<StringTable> parseStringTable(std::string_view source) {
    if (source.starts_with(kByteOrderMark)) {
        source.remove_prefix(kByteOrderMark.size());
    }
    if (!isValidUTF8(source)) {
        return std::nullopt;
    }
    StringTable table;
    Reader reader(source);
    for (;;) {
        if (!reader.skipBlanksAndComments()) {
            return std::nullopt;
        }
        if (reader.atEnd()) {
            return table;
        }
        const std::optional<std::string> key = reader.takeText();
        if (!key || !reader.skipBlanksAndComments()) {
            return std::nullopt;
        }
        std::optional<std::string> text = key;
        if (reader.take('=')) {
            if (!reader.skipBlanksAndComments()) {
                return std::nullopt;
            }
            text = reader.takeText();
        }
        if (!text || !reader.skipBlanksAndComments() || !reader.take(';')) {
            return std::nullopt;
        }
        table.insert_or_assign(*key, std::move(*text));
    }
}

std::vector<std::string> preferredLanguages(const ProcessInfo& processInfo) {
    std::string locale;
    for (const std::string_view name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = processInfo.environment(name).value_or("");
        if (!locale.empty()) {
            break;
        }
    }
    std::vector<std::string> names;
    if (!isPlainLocale(locale)) {
        const std::string list = processInfo.environment("LANGUAGE").value_or("");
        for (std::string_view rest = list; !rest.empty();) {
            const std::size_t end = std::min(rest.find(':'), rest.size());
            appendNames(names, rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    appendNames(names, locale);
    return names;
}

StringTables::StringTables(const std::string& resourceFolder, std::vector<std::string> languages) {
    languages.emplace_back(kDevelopmentLanguage);
    for (const std::string& language : languages) {
        const std::filesystem::path folder =
            std::filesystem::path(resourceFolder) / (language + ".lproj");
        std::error_code error;
        if (std::filesystem::is_directory(folder, error)) {
            table_ = parseStringTable(readFile(folder / "Localizable.strings").value_or(""))
                         .value_or(StringTable());
            return;
        }
    }
}

std::string StringTables::localizedString(std::string_view key) const {
    const auto found = table_.find(key);
    return found != table_.end() ? found->second : std::string(key);
}

} // namespace corvid
