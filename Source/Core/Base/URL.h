#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace corvid {

/// A URL as the platform's own class has it: a text, and for a relative one the base that it was
/// made against. Items of the volume travel as file URLs. Immutable; a copy is cheap and keeps the
/// identity that an archive records (see identity()). Texts that it gives live as long as some copy
/// of it. Any thread. Once moved from, it can only be assigned to, copied and destroyed.
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
    std::string_view absoluteString() const;

    /// The text as given, before it is resolved.
    std::string_view relativeString() const;

    /// The base, null when there is none. Owned by this URL.
    const URL* base() const;

    /// The path of the absolute text, without its percent escapes and without separators at its
    /// end (but "/" itself stays). Empty when no file can have that path: when its escapes decode
    /// to a NUL or to what is not UTF-8. Worked out at each call.
    std::string path() const;

    /// True when the scheme of the absolute text is "file", in capitals or not.
    bool isFileURL() const;

    /// True when the absolute text names a computer, and not "localhost": its path is none of here,
    /// and path() must not be taken for one.
    bool isOfOtherHost() const;

    /// True when the path of the absolute text ends in "/".
    bool hasDirectoryPath() const;

    /// Equal when base and text are equal, to the letter.
    friend bool operator==(const URL& a, const URL& b);

    /// The address that copies of one URL have in common, and no other URL has; an archive writes
    /// such a URL once.
    const void* identity() const { return parts_; }

    URL(const URL& other) noexcept : parts_(other.parts_) {
        if (parts_ != nullptr) {
            parts_->owners.fetch_add(1, std::memory_order_relaxed);
        }
    }
    URL(URL&& other) noexcept : parts_(std::exchange(other.parts_, nullptr)) {}
    URL& operator=(URL other) noexcept {
        std::swap(parts_, other.parts_);
        return *this;
    }
    ~URL() { release(parts_); }

private:
    struct Resolved;

    /// What copies share. The text lies behind it in the same piece of memory, and little lies
    /// before: a message may hold a hundred thousand, whose time goes into reaching them.
    struct Parts {
        mutable std::atomic<std::uint64_t> owners = 1;
        const Resolved* resolved = nullptr; ///< null without a base: the text is absolute
        std::size_t textSize = 0;
    };

    static URL holding(std::string_view text, std::unique_ptr<const Resolved> resolved);
    explicit URL(const Parts* parts) : parts_(parts) {}

    static void release(const Parts* parts) noexcept {
        // The only owner need not count: nobody else can come to own it meanwhile.
        if (parts != nullptr && (parts->owners.load(std::memory_order_acquire) == 1 ||
                                 parts->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)) {
            destroy(parts);
        }
    }
    static void destroy(const Parts* parts) noexcept;

    const Parts* parts_;
};

} // namespace corvid
