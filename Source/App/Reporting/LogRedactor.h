#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// Takes the names of files out of log lines before a stranger sees them.
///
/// Every component of a path below the volume becomes ten hexadecimal digits and its extension
/// ("/Volumes/Corvid/Plan/notes 2.txt" becomes "/Volumes/Corvid/91f3a0c2de/0b7c66a1f4.txt"): the
/// same name, written as a path or in a URL, always gives the same digits under one key, so that
/// an item can be followed through the log. Immutable; any thread.
class LogRedactor {
public:
    using Key = std::array<std::uint8_t, 16>;

    /// Redacts under `key`, which must stay with the user: whoever has it can try names. What lies
    /// below one of `folders`, absolute paths, is redacted like what lies below the volume: a host
    /// that names an item by its local path has the log name it so.
    explicit LogRedactor(const Key& key, const std::vector<std::string>& folders = {});

    /// One line of a log file, with or without its newline. A path is taken to go on to the end of
    /// the line, as it does in every line that holds one; a URL ends before the first blank, "]" or
    /// quotation mark.
    std::string redacted(std::string_view line) const;

private:
    /// How a folder stands in a line.
    struct Root {
        std::string text;
        bool isURL;
    };

    void addRoot(std::string_view folder);
    std::string redactedPath(std::string_view path, bool isURL) const;
    std::string redactedComponent(std::string_view component) const;

    const Key key_;
    std::vector<Root> roots_;
};

} // namespace corvid
