#include "Core/Archive/BinaryPropertyList.h"

#include "Core/Archive/Limits.h"
#include "Core/Base/UTF8.h"

#include <array>
#include <bit>
#include <cstring>

namespace corvid {

namespace {

using Code = ArchiveError::Code;

constexpr std::string_view kSignature = "bplist0";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

// What the count of a value counts.
enum class Unit : std::uint8_t { none, fixed, byte, utf16, reference, pair };

struct Marker {
    BinaryPropertyList::Kind kind = BinaryPropertyList::Kind::boolean;
    Unit unit = Unit::none;
    std::uint8_t count = 0; ///< 15 where it may follow as an integer
    bool isKnown = false;
};

// What each marker byte announces. Markers of types that no archive holds (null, fill, sets, wider
// or narrower numbers) are unknown.
constexpr auto kMarkers = [] {
    using Kind = BinaryPropertyList::Kind;
    std::array<Marker, 256> markers{};
    markers[0x08] = {Kind::boolean, Unit::none, 0, true};
    markers[0x09] = {Kind::boolean, Unit::none, 1, true};
    for (unsigned width = 0; width <= 4; ++width) {
        markers[0x10 + width] = {Kind::integer, Unit::fixed, static_cast<std::uint8_t>(1U << width),
                                 true};
    }
    markers[0x22] = {Kind::real, Unit::fixed, 4, true};
    markers[0x23] = {Kind::real, Unit::fixed, 8, true};
    markers[0x33] = {Kind::date, Unit::fixed, 8, true};
    for (std::uint8_t low = 0; low < 16; ++low) {
        markers[0x40U + low] = {Kind::data, Unit::byte, low, true};
        markers[0x50U + low] = {Kind::ascii, Unit::byte, low, true};
        markers[0x60U + low] = {Kind::utf16, Unit::utf16, low, true};
        markers[0xA0U + low] = {Kind::array, Unit::reference, low, true};
        markers[0xD0U + low] = {Kind::dictionary, Unit::pair, low, true};
    }
    for (std::uint8_t low = 0; low < 8; ++low) {
        markers[0x80U + low] = {Kind::uid, Unit::fixed, static_cast<std::uint8_t>(low + 1), true};
    }
    return markers;
}();

bool isASCII(const std::uint8_t* bytes, std::size_t size) {
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + i, 8);
        if ((word & 0x8080808080808080U) != 0) {
            return false;
        }
    }
    for (; i < size; ++i) {
        if (bytes[i] >= 0x80) {
            return false;
        }
    }
    return true;
}

} // namespace

void refuseAtByte(Code code, std::uint64_t offset) {
    throw ArchiveRefusal{{code, ArchiveError::Where::byte, offset}};
}

void refuseAtObject(Code code, std::uint64_t uid, std::string_view key) {
    throw ArchiveRefusal{{code, ArchiveError::Where::object, uid, std::string(key)}};
}

bool BinaryPropertyList::hasSignature(ByteView bytes) {
    return bytes.size() >= kSignature.size() &&
           std::memcmp(bytes.data(), kSignature.data(), kSignature.size()) == 0;
}

BinaryPropertyList::BinaryPropertyList(ByteView bytes) : bytes_(bytes) {
    if (!hasSignature(bytes)) {
        refuseAtByte(Code::notAPropertyList, 0);
    }
    if (bytes.size() > limits::kArchiveSize) {
        refuseAtByte(Code::tooLarge, limits::kArchiveSize);
    }
    if (bytes.size() < kHeaderSize + kTrailerSize + 2) {
        refuseAtByte(Code::truncated, bytes.size());
    }
    const std::size_t trailer = bytes.size() - kTrailerSize;
    offsetWidth_ = bytes[trailer + 6];
    refWidth_ = bytes[trailer + 7];
    const std::uint64_t count = bigEndian(trailer + 8, 8);
    const std::uint64_t top = bigEndian(trailer + 16, 8);
    const std::uint64_t table = bigEndian(trailer + 24, 8);
    if (offsetWidth_ < 1 || offsetWidth_ > 8) {
        refuseAtByte(Code::badTrailer, trailer + 6);
    }
    if (refWidth_ < 1 || refWidth_ > 8) {
        refuseAtByte(Code::badTrailer, trailer + 7);
    }
    if (count < 1) {
        refuseAtByte(Code::badTrailer, trailer + 8);
    }
    if (count > limits::kPropertyListValues) {
        refuseAtByte(Code::tooManyObjects, trailer + 8);
    }
    if (refWidth_ < 8 && ((count - 1) >> (8 * refWidth_)) != 0) {
        refuseAtByte(Code::badTrailer, trailer + 7);
    }
    if (top >= count) {
        refuseAtByte(Code::badTrailer, trailer + 16);
    }
    if (table <= kHeaderSize || table > trailer) {
        refuseAtByte(Code::badTrailer, trailer + 24);
    }
    // Neither product nor sum can overflow: the count is bounded above, the table by the size.
    const std::uint64_t tableEnd = table + count * offsetWidth_;
    if (tableEnd > trailer) {
        refuseAtByte(Code::truncated, bytes.size());
    }
    if (tableEnd < trailer) {
        refuseAtByte(Code::trailingBytes, tableEnd);
    }
    tableStart_ = static_cast<std::size_t>(table);
    valueCount_ = static_cast<std::size_t>(count);
    top_ = static_cast<Ref>(top);
    for (std::size_t i = 0; i < valueCount_; ++i) {
        const std::uint64_t offset = bigEndian(tableStart_ + i * offsetWidth_, offsetWidth_);
        if (offset < kHeaderSize || offset >= tableStart_) {
            refuseAtByte(Code::badOffset, tableStart_ + i * offsetWidth_);
        }
    }
}

BinaryPropertyList::Item BinaryPropertyList::item(Ref ref) const {
    const auto start =
        static_cast<std::size_t>(bigEndian(tableStart_ + ref * offsetWidth_, offsetWidth_));
    const std::uint8_t marker = bytes_[start];
    const Marker& meaning = kMarkers[marker];
    if (!meaning.isKnown) {
        refuseAtByte(Code::unknownType, start);
    }
    Item item{meaning.kind, start, start + 1, meaning.count};
    if (meaning.unit == Unit::none) {
        return item;
    }
    if (meaning.unit != Unit::fixed && meaning.count == 0x0F) {
        item.count = longCount(start);
        item.content += 1 + (std::size_t{1} << (bytes_[start + 1] & 0x0FU));
    }
    const std::size_t width = meaning.unit == Unit::utf16       ? 2
                              : meaning.unit == Unit::reference ? refWidth_
                              : meaning.unit == Unit::pair      ? 2 * refWidth_
                                                                : 1;
    // The count is far from the size at which the product could overflow.
    if (item.count * width > tableStart_ - item.content) {
        refuseAtByte(Code::badLength, start);
    }
    if (item.count > limits::kStringLength && item.isString()) {
        refuseAtByte(Code::stringTooLong, start);
    }
    return item;
}

// The count that follows the marker at `start` as an integer.
std::size_t BinaryPropertyList::longCount(std::size_t start) const {
    const std::size_t at = start + 1;
    if (at >= tableStart_ || (bytes_[at] & 0xF0U) != 0x10 || (bytes_[at] & 0x0FU) > 3) {
        refuseAtByte(Code::badLength, start);
    }
    const std::size_t width = std::size_t{1} << (bytes_[at] & 0x0FU);
    if (width > tableStart_ - at - 1) {
        refuseAtByte(Code::badLength, start);
    }
    const std::uint64_t count = bigEndian(at + 1, width);
    if (count > limits::kArchiveSize) {
        refuseAtByte(Code::badLength, start);
    }
    return static_cast<std::size_t>(count);
}

std::int64_t BinaryPropertyList::integer(const Item& integer) const {
    if (integer.count < 8) {
        return static_cast<std::int64_t>(bigEndian(integer.content, integer.count));
    }
    const std::size_t low = integer.content + integer.count - 8;
    const auto value = std::bit_cast<std::int64_t>(bigEndian(low, 8));
    // Sixteen bytes are how the platform writes an unsigned number above the signed range.
    if (integer.count == 16 &&
        bigEndian(integer.content, 8) != (value < 0 ? ~std::uint64_t{0} : 0)) {
        refuseAtByte(Code::integerOutOfRange, integer.start);
    }
    return value;
}

double BinaryPropertyList::real(const Item& real) const {
    if (real.count == 4) {
        return static_cast<double>(
            std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(real.content, 4))));
    }
    return std::bit_cast<double>(bigEndian(real.content, 8));
}

double BinaryPropertyList::date(const Item& date) const {
    return std::bit_cast<double>(bigEndian(date.content, 8));
}

std::uint64_t BinaryPropertyList::uid(const Item& uid) const {
    return bigEndian(uid.content, uid.count);
}

ByteView BinaryPropertyList::data(const Item& data) const {
    return bytes_.subspan(data.content, data.count);
}

std::string_view BinaryPropertyList::ascii(const Item& string) const {
    const auto* first = bytes_.data() + string.content;
    if (!isASCII(first, string.count)) {
        refuseAtByte(Code::badText, string.start);
    }
    // Bytes may be looked at as characters.
    return {reinterpret_cast<const char*>(first), string.count};
}

std::string BinaryPropertyList::text(const Item& string) const {
    if (string.kind == Kind::ascii) {
        return std::string(ascii(string));
    }
    const auto unit = [&](std::size_t index) {
        return static_cast<char32_t>(bigEndian(string.content + 2 * index, 2));
    };
    std::string text;
    text.reserve(3 * string.count);
    for (std::size_t i = 0; i < string.count; ++i) {
        char32_t scalar = unit(i);
        if (scalar >= 0xD800 && scalar < 0xE000) {
            const char32_t low = i + 1 < string.count ? unit(i + 1) : 0;
            if (scalar >= 0xDC00 || low < 0xDC00 || low >= 0xE000) {
                refuseAtByte(Code::badText, string.start);
            }
            scalar = 0x10000 + ((scalar - 0xD800) << 10U) + (low - 0xDC00);
            ++i;
        }
        appendUTF8(text, scalar);
    }
    return text;
}

bool BinaryPropertyList::equals(const Item& string, std::string_view text) const {
    return string.kind == Kind::ascii && string.count == text.size() &&
           std::memcmp(bytes_.data() + string.content, text.data(), text.size()) == 0;
}

} // namespace corvid
