#pragma once

#include "Core/Archive/ArchiveError.h"
#include "Core/Base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvid {

/// What the readers of this folder throw among themselves; unarchivedObject() and its like turn it
/// into a returned error.
struct ArchiveRefusal {
    ArchiveError error;
};

[[noreturn]] void refuseAtByte(ArchiveError::Code code, std::uint64_t offset);
[[noreturn]] void refuseAtObject(ArchiveError::Code code, std::uint64_t uid,
                                 std::string_view key = {});

/// A binary property list, read where it lies: nothing is copied and nothing is allocated but the
/// text that is asked for. Borrows its bytes. Every member throws ArchiveRefusal for bytes that
/// are not as the format wants them. Const members: any thread.
///
/// The format: "bplist00"; the values; a table of their offsets; a trailer of 32 bytes that says
/// how wide offsets and references are, how many values there are, which is the top one, and where
/// the table begins. All integers are big-endian. A value begins with a marker byte, kind in the
/// upper half, length or width in the lower; a length of 15 or more follows as an integer value.
/// (Documented in Apple's CFBinaryPList.c.)
class BinaryPropertyList {
public:
    /// The number of a value.
    using Ref = std::uint32_t;

    enum class Kind : std::uint8_t {
        boolean,
        integer,
        real,
        date,
        data,
        ascii,
        utf16,
        uid,
        array,
        dictionary,
    };

    /// One value, its extent already checked against the object area.
    struct Item {
        Kind kind;
        std::size_t start;   ///< offset of the marker
        std::size_t content; ///< offset of what follows marker and length
        std::size_t count;   ///< bytes; code units of UTF-16; elements; pairs; 0 or 1 of a Boolean

        bool isString() const { return kind == Kind::ascii || kind == Kind::utf16; }
    };

    /// True when `bytes` begin as a binary property list does.
    static bool hasSignature(ByteView bytes);

    /// Checks the trailer and every offset.
    explicit BinaryPropertyList(ByteView bytes);

    std::size_t size() const { return bytes_.size(); }
    std::size_t valueCount() const { return valueCount_; }
    Ref top() const { return top_; }

    Item item(Ref ref) const;

    /// Element `index` of an array; the caller keeps it below `count`, here and below.
    Ref element(const Item& array, std::size_t index) const { return refAt(array.content, index); }
    Ref key(const Item& dictionary, std::size_t index) const {
        return refAt(dictionary.content, index);
    }
    Ref value(const Item& dictionary, std::size_t index) const {
        return refAt(dictionary.content, dictionary.count + index);
    }

    std::int64_t integer(const Item& integer) const;
    double real(const Item& real) const;
    double date(const Item& date) const;
    std::uint64_t uid(const Item& uid) const;
    ByteView data(const Item& data) const;

    /// The characters of an `ascii` string. Borrowed from the list's bytes.
    std::string_view ascii(const Item& string) const;
    /// Any string, as UTF-8.
    std::string text(const Item& string) const;
    /// True when the string is `text`, which is ASCII.
    bool equals(const Item& string, std::string_view text) const;

private:
    Ref refAt(std::size_t content, std::size_t index) const {
        const std::size_t offset = content + index * refWidth_;
        const std::uint64_t ref = bigEndian(offset, refWidth_);
        if (ref >= valueCount_) {
            refuseAtByte(ArchiveError::Code::referenceOutOfRange, offset);
        }
        return static_cast<Ref>(ref);
    }
    std::uint64_t bigEndian(std::size_t offset, std::size_t width) const {
        std::uint64_t value = bytes_[offset];
        for (std::size_t i = 1; i < width; ++i) {
            value = (value << 8U) | bytes_[offset + i];
        }
        return value;
    }
    std::size_t longCount(std::size_t start) const;

    ByteView bytes_;
    std::size_t tableStart_ = 0;
    std::size_t offsetWidth_ = 0;
    std::size_t refWidth_ = 0;
    std::size_t valueCount_ = 0;
    Ref top_ = 0;
};

} // namespace corvid
