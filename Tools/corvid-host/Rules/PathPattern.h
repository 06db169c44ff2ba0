#pragma once

#include <string>
#include <string_view>

namespace corvid {

/// A pattern of paths below a folder: "?" is one byte and "*" any number of them within a name,
/// "**" any number across names. A pattern without "/" is one of names, in whatever folder; one
/// with a "/" is one of whole paths. Immutable.
class PathPattern {
public:
    explicit PathPattern(std::string text) : text_(std::move(text)) {}

    /// `path` is relative to the folder; the folder itself is "".
    bool matches(std::string_view path) const;

private:
    std::string text_;
};

} // namespace corvid
