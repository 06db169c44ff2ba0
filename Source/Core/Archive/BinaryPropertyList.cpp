#include "Core/Archive/BinaryPropertyList.h"

#include "Core/Archive/Limits.h"

#include <array>
#include <bit>
#include <cstring>
#include <limits>

namespace corvid {

namespace {

using Code = ArchiveError::Code;

constexpr std::string_view kSignature = "bplist0";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

static_assert(limits::kArchiveSize <= std::numeric_limits<std::uint32_t>::max());

} // namespace

void refuseAtByte(Code code, std::uint64_t offset) {
    throw ArchiveRefusal{{code, ArchiveError::Where::byte, offset}};
}

void refuseAtObject(Code code, std::uint64_t uid, std::string_view key) {
    throw ArchiveRefusal{{code, ArchiveError::Where::object, uid, std::string(key)}};
}

// Null, fill, sets and numbers wider or narrower than these occur in no archive.
const constinit std::array<BinaryPropertyList::Marker, 256> BinaryPropertyList::kMarkers = [] {
    using Length = Marker::Length;
    std::array<Marker, 256> markers{};
    markers[0x08] = {Kind::boolean, kNothing, 0, Length::here};
    markers[0x09] = {Kind::boolean, kNothing, 1, Length::here};
    for (unsigned width = 0; width <= 4; ++width) {
        markers[0x10 + width] = {Kind::integer, kByte, static_cast<std::uint8_t>(1U << width),
                                 Length::here};
    }
    markers[0x22] = {Kind::real, kByte, 4, Length::here};
    markers[0x23] = {Kind::real, kByte, 8, Length::here};
    markers[0x33] = {Kind::date, kByte, 8, Length::here};
    for (std::uint8_t low = 0; low < 16; ++low) {
        const Length length = low < kLengthBehind ? Length::here : Length::behind;
        markers[0x40U + low] = {Kind::data, kByte, low, length};
        markers[std::size_t{kShortASCII} + low] = {Kind::ascii, kByte, low, length};
        markers[0x60U + low] = {Kind::utf16, kUTF16, low, length};
        markers[0xA0U + low] = {Kind::array, kReference, low, length};
        markers[0xD0U + low] = {Kind::dictionary, kPair, low, length};
    }
    for (std::uint8_t low = 0; low < kUIDWidths; ++low) {
        markers[std::size_t{kShortestUID} + low] = {
            Kind::uid, kByte, static_cast<std::uint8_t>(low + 1), Length::here};
    }
    return markers;
}();

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
    const std::size_t offsetWidth = bytes[trailer + 6];
    const std::size_t refWidth = bytes[trailer + 7];
    const std::uint64_t count = bigEndian64(bytes.data() + trailer + 8);
    const std::uint64_t top = bigEndian64(bytes.data() + trailer + 16);
    const std::uint64_t table = bigEndian64(bytes.data() + trailer + 24);
    if (offsetWidth < 1 || offsetWidth > 8) {
        refuseAtByte(Code::badTrailer, trailer + 6);
    }
    if (refWidth < 1 || refWidth > 8) {
        refuseAtByte(Code::badTrailer, trailer + 7);
    }
    if (count < 1) {
        refuseAtByte(Code::badTrailer, trailer + 8);
    }
    if (count > limits::kPropertyListValues) {
        refuseAtByte(Code::tooManyObjects, trailer + 8);
    }
    if (count - 1 > Width(refWidth).max()) {
        refuseAtByte(Code::badTrailer, trailer + 7);
    }
    if (top >= count) {
        refuseAtByte(Code::badTrailer, trailer + 16);
    }
    if (table <= kHeaderSize || table > trailer) {
        refuseAtByte(Code::badTrailer, trailer + 24);
    }
    // Neither product nor sum can overflow: the count is bounded above, the table by the size.
    const std::uint64_t tableEnd = table + count * offsetWidth;
    if (tableEnd > trailer) {
        refuseAtByte(Code::truncated, bytes.size());
    }
    if (tableEnd < trailer) {
        refuseAtByte(Code::trailingBytes, tableEnd);
    }
    offsets_ = Width(offsetWidth);
    refs_ = Width(refWidth);
    tableStart_ = static_cast<std::size_t>(table);
    valueCount_ = static_cast<std::size_t>(count);
    top_ = static_cast<Ref>(top);
    unitSizes_[kByte] = 1;
    unitSizes_[kUTF16] = 2;
    unitSizes_[kReference] = static_cast<std::uint8_t>(refWidth);
    unitSizes_[kPair] = static_cast<std::uint8_t>(2 * refWidth);
    // One comparison: what is below the header's end wraps around.
    const auto isInside = [&](std::uint64_t offset) {
        return offset - kHeaderSize < table - kHeaderSize;
    };
    std::size_t at = tableStart_;
    if (offsetWidth == 2) { // As in most messages: four at a time.
        for (; trailer - at >= 8; at += 8) {
            const std::uint64_t four = bigEndian64(bytes.data() + at);
            if (!isInside(four >> 48U) || !isInside(four >> 32U & 0xFFFFU) ||
                !isInside(four >> 16U & 0xFFFFU) || !isInside(four & 0xFFFFU)) {
                break;
            }
        }
    }
    for (; at != trailer; at += offsetWidth) {
        if (!isInside(bigEndian(at, offsets_))) {
            refuseAtByte(Code::badOffset, at);
        }
    }
}

BinaryPropertyList::Item BinaryPropertyList::itemWithLengthBehind(std::uint32_t start,
                                                                  Marker marker) const {
    if (marker.length == Marker::Length::unknown) {
        refuseAtByte(Code::unknownType, start);
    }
    const std::uint32_t at = start + 1;
    if (at >= tableStart_ || (bytes_[at] & 0xF0U) != 0x10 || (bytes_[at] & 0x0FU) > 3) {
        refuseAtByte(Code::badLength, start);
    }
    const std::uint32_t width = 1U << (bytes_[at] & 0x0FU);
    if (width > tableStart_ - at - 1) {
        refuseAtByte(Code::badLength, start);
    }
    const std::uint64_t count = bigEndian(at + 1, Width(width));
    if (count > limits::kArchiveSize) {
        refuseAtByte(Code::badLength, start);
    }
    const Item item{marker.kind, start, at + 1 + width, static_cast<std::uint32_t>(count)};
    checkExtent(item, marker);
    if (item.isString() && item.count > limits::kStringLength) {
        refuseAtByte(Code::stringTooLong, start);
    }
    return item;
}

std::int64_t BinaryPropertyList::integer(const Item& integer) const {
    if (integer.count < 8) {
        return static_cast<std::int64_t>(bigEndian(integer.content, Width(integer.count)));
    }
    const std::size_t low = integer.content + integer.count - 8;
    const auto value = std::bit_cast<std::int64_t>(bigEndian(low, Width(8)));
    // Sixteen bytes are how the platform writes an unsigned number above the signed range.
    if (integer.count == 16 &&
        bigEndian(integer.content, Width(8)) != (value < 0 ? ~std::uint64_t{0} : 0)) {
        refuseAtByte(Code::integerOutOfRange, integer.start);
    }
    return value;
}

double BinaryPropertyList::real(const Item& real) const {
    if (real.count == 4) {
        return static_cast<double>(
            std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(real.content, Width(4)))));
    }
    return std::bit_cast<double>(bigEndian(real.content, Width(8)));
}

double BinaryPropertyList::date(const Item& date) const {
    return std::bit_cast<double>(bigEndian(date.content, Width(8)));
}

ByteView BinaryPropertyList::data(const Item& data) const {
    return bytes_.subspan(data.content, data.count);
}

std::string BinaryPropertyList::text(const Item& string) const {
    if (string.kind == Kind::ascii) {
        return std::string(ascii(string));
    }
    const auto unit = [&](std::size_t index) {
        return static_cast<char32_t>(bigEndian(string.content + 2 * index, Width(2)));
    };
    std::string text;
    text.reserve(std::size_t{3} * string.count);
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

} // namespace corvid
