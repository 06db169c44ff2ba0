#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace corvid {

/// A pattern of paths below a folder: "?" is one byte and "*" any number of them within a name,
/// "**" any number across names. A pattern without "/" is one of names, in whatever folder; one
/// with a "/" is one of whole paths. Immutable.
class PathPattern {
public:
    explicit PathPattern(std::string_view text);

    /// `path` is relative to the folder; the folder itself is "". Takes time in proportion to the
    /// length of the pattern times that of the path, whatever they are.
    bool matches(std::string_view path) const;

private:
    struct Part {
        enum class Kind : std::uint8_t { byte, oneOfName, anyOfName, anything };

        Kind kind;
        char byte = 0;

        bool isRepeated() const { return kind == Kind::anyOfName || kind == Kind::anything; }
        bool takes(char c) const {
            return kind == Kind::anything || (kind == Kind::byte ? c == byte : c != '/');
        }
    };

    bool isOfNames_;
    std::vector<Part> parts_;
};

} // namespace corvid
