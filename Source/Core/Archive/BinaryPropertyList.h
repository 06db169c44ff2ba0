#pragma once

#include "Core/Archive/ArchiveError.h"
#include "Core/Base/Bytes.h"
#include "Core/Base/UTF8.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
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
        absent, ///< of no value: what a search gives that finds nothing
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

    /// One value, its extent already checked against the object area. Of 32 bits, which the bound
    /// on the size of a list allows, so that it travels in registers.
    struct Item {
        Kind kind = Kind::absent;
        std::uint32_t start = 0;   ///< offset of the marker
        std::uint32_t content = 0; ///< offset of what follows marker and length
        std::uint32_t count =
            0; ///< bytes; code units of UTF-16; elements; pairs; 0 or 1 of a Boolean

        bool isPresent() const { return kind != Kind::absent; }
        bool isString() const { return kind == Kind::ascii || kind == Kind::utf16; }
    };

    /// True when `bytes` begin as a binary property list does.
    static bool hasSignature(ByteView bytes);

    /// Checks the trailer and every offset.
    explicit BinaryPropertyList(ByteView bytes);

    std::size_t size() const { return bytes_.size(); }
    std::size_t valueCount() const { return valueCount_; }
    Ref top() const { return top_; }

    // Here, since everything is read through it, several times a value.
    Item item(Ref ref) const {
        const std::uint32_t start = offset(ref);
        const Marker marker = kMarkers[bytes_[start]];
        if (marker.length != Marker::Length::here) {
            return itemWithLengthBehind(start, marker);
        }
        const Item item{marker.kind, start, start + 1, marker.count};
        checkExtent(item, marker);
        return item;
    }

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
    std::uint64_t uid(const Item& uid) const { return bigEndian(uid.content, Width(uid.count)); }
    /// item() and uid() in one, since archives are mostly references; nothing for a value of
    /// another kind.
    std::optional<std::uint64_t> uid(Ref ref) const {
        const std::uint32_t start = offset(ref);
        const std::uint32_t width = bytes_[start] - kShortestUID + 1U;
        if (width - 1 >= kUIDWidths || width >= tableStart_ - start) {
            static_cast<void>(item(ref)); // Refuses what is no value at all.
            return std::nullopt;
        }
        return bigEndian(start + 1, Width(width));
    }
    ByteView data(const Item& data) const;

    /// As uncheckedASCII(), for a string short enough for its marker to hold the length, as most
    /// keys are; empty for any other value, which item() looks at.
    std::string_view shortASCII(Ref ref) const {
        const std::uint32_t start = offset(ref);
        const auto length = static_cast<std::uint8_t>(bytes_[start] - kShortASCII);
        if (length >= kLengthBehind || length >= tableStart_ - start) {
            return {};
        }
        return uncheckedASCII({Kind::ascii, start, start + 1, length});
    }

    /// The bytes of an `ascii` string, of which some may be no ASCII: for who compares them with
    /// what is. Borrowed from the list's bytes.
    std::string_view uncheckedASCII(const Item& string) const {
        // Bytes may be looked at as characters.
        return {reinterpret_cast<const char*>(bytes_.data() + string.content), string.count};
    }
    /// The same of any value; empty for one of another kind.
    std::string_view uncheckedASCII(Ref ref) const {
        const std::string_view text = shortASCII(ref);
        if (!text.empty()) {
            return text;
        }
        const Item value = item(ref);
        return value.kind == Kind::ascii ? uncheckedASCII(value) : std::string_view();
    }
    /// The characters of an `ascii` string. Borrowed from the list's bytes.
    std::string_view ascii(const Item& string) const {
        const std::string_view text = uncheckedASCII(string);
        if (!isASCII(text)) {
            refuseAtByte(ArchiveError::Code::badText, string.start);
        }
        return text;
    }
    /// Any string, as UTF-8.
    std::string text(const Item& string) const;
    /// True when the string is `text`, which is ASCII.
    bool equals(const Item& string, std::string_view text) const {
        return string.kind == Kind::ascii && uncheckedASCII(string) == text;
    }

private:
    // Markers of ASCII strings, in the order of their lengths, and the first length behind its
    // marker.
    static constexpr std::uint8_t kShortASCII = 0x50;
    static constexpr std::uint8_t kLengthBehind = 15;
    // Markers of UIDs, in the order of their widths, of 1 to 8 bytes.
    static constexpr std::uint8_t kShortestUID = 0x80;
    static constexpr std::uint8_t kUIDWidths = 8;

    /// What the count of a value counts.
    enum Unit : std::uint8_t { kNothing, kByte, kUTF16, kReference, kPair, kUnits };

    /// What a marker byte announces.
    struct Marker {
        enum class Length : std::uint8_t { unknown, here, behind };

        Kind kind = Kind::absent;
        Unit unit = kNothing;
        std::uint8_t count = 0;
        Length length = Length::unknown; ///< `unknown` for a type that no archive holds
    };
    static const std::array<Marker, 256> kMarkers;

    /// That of an integer, of 1 to 8 bytes.
    struct Width {
        explicit Width(std::size_t width)
            : bytes(width), unusedBits(static_cast<unsigned>(64 - 8 * width)) {}
        std::uint64_t max() const { return ~std::uint64_t{0} >> unusedBits; }
        std::size_t bytes;
        unsigned unusedBits;
    };

    Item itemWithLengthBehind(std::uint32_t start, Marker marker) const;
    void checkExtent(const Item& item, Marker marker) const {
        // The count is far from the size at which the product could overflow.
        if (std::size_t{item.count} * unitSizes_[marker.unit] > tableStart_ - item.content) {
            refuseAtByte(ArchiveError::Code::badLength, item.start);
        }
    }

    std::uint32_t offset(Ref ref) const {
        return static_cast<std::uint32_t>(bigEndian(tableStart_ + ref * offsets_.bytes, offsets_));
    }
    Ref refAt(std::size_t content, std::size_t index) const {
        const std::size_t offset = content + index * refs_.bytes;
        const std::uint64_t ref = bigEndian(offset, refs_);
        if (ref >= valueCount_) {
            refuseAtByte(ArchiveError::Code::referenceOutOfRange, offset);
        }
        return static_cast<Ref>(ref);
    }
    /// The integer at `offset`. Every integer but the trailer's last ones, of eight bytes, lies
    /// before the trailer, so the eight bytes that begin with it can be read in one piece.
    std::uint64_t bigEndian(std::size_t offset, Width width) const {
        return bigEndian64(bytes_.data() + offset) >> width.unusedBits;
    }

    ByteView bytes_;
    std::size_t tableStart_ = 0;
    Width offsets_{8};
    Width refs_{8};
    std::array<std::uint8_t, kUnits> unitSizes_{}; ///< bytes of each unit that a count may count
    std::size_t valueCount_ = 0;
    Ref top_ = 0;
};

} // namespace corvid
