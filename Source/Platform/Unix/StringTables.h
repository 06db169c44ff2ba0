#pragma once

#include "Platform/Interfaces/ProcessInfo.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// The texts of a string table by their keys, in UTF-8.
using StringTable = std::map<std::string, std::string, std::less<>>;

/// Reads a string table: pairs of "key" = "text"; with comments, as in a file `*.strings`. A text
/// may stand without quotes when it is letters, digits and "_$/:.-" only; `"key";` is its own
/// text. The later of two entries with one key counts. Nothing when `source` is not UTF-8 or is
/// malformed.
std::optional<StringTable> parseStringTable(std::string_view source);

/// The names under which string tables may lie for the languages that the environment asks for,
/// the most wanted first: LANGUAGE, a list, then the first that is set of LC_ALL, LC_MESSAGES and
/// LANG. "pt_BR.UTF-8" gives "pt-BR" and "pt"; Chinese gives "zh-Hans" or "zh-Hant" by its country
/// or script. LANGUAGE is left out, as gettext does, where the locale is plainly "C" or "POSIX".
std::vector<std::string> preferredLanguages(const ProcessInfo& processInfo);

/// The default string table in the user's language: "LANGUAGE.lproj/Localizable.strings" in the
/// folder of the resources. Immutable; any thread.
class StringTables {
public:
    /// Loads the table of the first of `languages` that has a folder, else the English one. A
    /// table that is missing or malformed is an empty one.
    StringTables(const std::string& resourceFolder, std::vector<std::string> languages);

    /// The text under `key`; the key itself when the table has none.
    std::string localizedString(std::string_view key) const;

private:
    StringTable table_;
};

} // namespace corvid
