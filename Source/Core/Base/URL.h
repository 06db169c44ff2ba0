#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// A URL as the platform's own class has it: a text, and for a relative one the base that it was
/// made against. Items of the volume travel as file URLs. Immutable; a copy is cheap and keeps the
/// identity that an archive records (see sameObject()). Any thread.
class URL {
public:
    /// The file URL of the absolute path `path`: "file://" and the path, whose bytes outside
    /// A-Z a-z 0-9 and "!$&'()*+,-./:=@_~" become percent escapes. Separators at the end are
    /// dropped; a folder then gets one. Otherwise nothing is normalised: neither "..", nor repeated
    /// separators, nor the Unicode form of a name.
    /// Nothing when `path` is not absolute, holds a NUL, or is not valid UTF-8.
    static std::optional<URL> fileURL(std::string_view path, bool isDirectory = false);

    /// The URL that `text` says, kept exactly. Nothing when `text` is empty or is not a URI
    /// reference by RFC 3986: a character or percent escape that is not allowed, a colon that ends
    /// no scheme, a bad host or port.
    static std::optional<URL> fromText(std::string_view text);

    /// As above, relative to `base`, which is dropped when `text` names a scheme of its own.
    /// Here `text` may be empty.
    static std::optional<URL> fromText(std::string_view text, const URL& base);

    /// The absolute text: the text resolved against the base (RFC 3986, section 5.2), or, when
    /// there is none, the text as it is.
    const std::string& absoluteString() const;

    /// The text as given, before it is resolved.
    const std::string& relativeString() const;

    /// The base, null when there is none. Owned by this URL.
    const URL* base() const;

    /// The path of the absolute text, without its percent escapes and without separators at its
    /// end (but "/" itself stays). Empty when no file can have that path: when its escapes decode
    /// to a NUL or to what is not UTF-8. Worked out at each call.
    std::string path() const;

    /// True when the scheme of the absolute text is "file", in capitals or not.
    bool isFileURL() const;

    /// True when the path of the absolute text ends in "/".
    bool hasDirectoryPath() const;

    /// Equal when base and text are equal, to the letter.
    friend bool operator==(const URL& a, const URL& b);

    /// True when both are copies of one URL; an archive writes such a URL once.
    bool sameObject(const URL& other) const { return parts_ == other.parts_; }

private:
    struct Parts;
    explicit URL(std::shared_ptr<const Parts> parts);
    std::shared_ptr<const Parts> parts_;
};

} // namespace corvid
