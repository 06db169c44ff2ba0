#include "Core/Archive/BinaryPropertyListWriter.h"

#include "Core/Base/UTF8.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace corvid {

namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerBytes = 32;

// The width in bytes, a power of two, that holds `value`.
constexpr std::size_t widthOf(std::uint64_t value) {
    return value <= 0xFF ? 1 : value <= 0xFFFF ? 2 : value <= 0xFFFFFFFF ? 4 : 8;
}

constexpr unsigned log2Of(std::size_t width) {
    return static_cast<unsigned>(std::countr_zero(width));
}

std::uint8_t byteOf(std::uint64_t value) {
    return static_cast<std::uint8_t>(value & 0xFFU);
}

// Writes `value` to the eight bytes at `bytes`, the highest first.
void putBigEndian64(std::uint8_t* bytes, std::uint64_t value) {
    // Spelled out, compilers make one store of it.
    bytes[0] = static_cast<std::uint8_t>(value >> 56U);
    bytes[1] = static_cast<std::uint8_t>(value >> 48U);
    bytes[2] = static_cast<std::uint8_t>(value >> 40U);
    bytes[3] = static_cast<std::uint8_t>(value >> 32U);
    bytes[4] = static_cast<std::uint8_t>(value >> 24U);
    bytes[5] = static_cast<std::uint8_t>(value >> 16U);
    bytes[6] = static_cast<std::uint8_t>(value >> 8U);
    bytes[7] = static_cast<std::uint8_t>(value);
}

// `width` is 1, 2, 4 or 8.
void putBigEndian(std::uint8_t* out, std::uint64_t value, std::size_t width) {
    if (width == 1) { // As nearly all are in small messages.
        *out = byteOf(value);
        return;
    }
    for (std::size_t i = width; i-- > 0; value >>= 8U) {
        out[i] = byteOf(value);
    }
}

void copy(const void* from, std::size_t size, std::uint8_t* to) {
    if (size != 0) { // else `from` may be null
        std::memcpy(to, from, size);
    }
}

std::u16string utf16Of(std::string_view utf8) {
    std::u16string units;
    units.reserve(utf8.size());
    while (!utf8.empty()) {
        const DecodedScalar decoded = decodeUTF8(utf8);
        utf8.remove_prefix(decoded.length);
        if (decoded.scalar < 0x10000) {
            units += static_cast<char16_t>(decoded.scalar);
        } else {
            const char32_t above = decoded.scalar - 0x10000;
            units += static_cast<char16_t>(0xD800U + (above >> 10U));
            units += static_cast<char16_t>(0xDC00U + (above & 0x3FFU));
        }
    }
    return units;
}

} // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter(std::size_t valueCount, std::size_t byteCount)
    : bytes_(kHeader.size() + byteCount), refWidth_(widthOf(valueCount)) {
    offsets_.resize(valueCount);
    std::ranges::copy(kHeader, extend(kHeader.size()));
}

void BinaryPropertyListWriter::grow(std::size_t size) {
    bytes_.resize(std::max(2 * bytes_.size(), size_ + size));
}

std::uint8_t* BinaryPropertyListWriter::begin(unsigned kind, std::size_t count, std::size_t size) {
    begin();
    if (count < kLengthBehind) {
        std::uint8_t* const out = extend(1 + size);
        *out = byteOf(kind | count);
        return out + 1;
    }
    const std::size_t width = widthOf(count);
    std::uint8_t* const out = extend(2 + width + size);
    out[0] = byteOf(kind | kLengthBehind);
    out[1] = byteOf(0x10U | log2Of(width));
    putBigEndian(out + 2, count, width);
    return out + 2 + width;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::number(unsigned marker, std::uint64_t bits,
                                                               std::size_t width) {
    const Ref ref = begin();
    std::uint8_t* const out = extend(1 + width);
    *out = byteOf(marker);
    putBigEndian(out + 1, bits, width);
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::boolean(bool value) {
    return number(value ? 0x09 : 0x08, 0, 0);
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::integer(std::int64_t value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const std::size_t width = widthOf(bits);
    return number(0x10U | log2Of(width), bits, width);
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::real(double value) {
    return number(0x23, std::bit_cast<std::uint64_t>(value), 8);
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::date(double seconds) {
    return number(0x33, std::bit_cast<std::uint64_t>(seconds), 8);
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::uid(std::uint64_t uid) {
    const std::size_t width = widthOf(uid);
    return number(0x80U | static_cast<unsigned>(width - 1), uid, width);
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::data(ByteView bytes) {
    copy(bytes.data(), bytes.size(), begin(kData, bytes.size(), bytes.size()));
    return lastRef();
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::text(std::string_view utf8) {
    if (isASCII(utf8)) {
        copy(utf8.data(), utf8.size(), begin(kASCII, utf8.size(), utf8.size()));
        return lastRef();
    }
    const std::u16string units = utf16Of(utf8);
    std::uint8_t* out = begin(kUTF16, units.size(), 2 * units.size());
    for (const char16_t unit : units) {
        putBigEndian(out, unit, 2);
        out += 2;
    }
    return lastRef();
}

BinaryPropertyListWriter::Container
BinaryPropertyListWriter::container(unsigned kind, std::size_t count, std::size_t refs) {
    const std::uint8_t* const content = begin(kind, count, refs * refWidth_);
    return {lastRef(), static_cast<std::size_t>(content - bytes_.data()), count};
}

BinaryPropertyListWriter::Container BinaryPropertyListWriter::array(std::size_t count) {
    return container(kArray, count, count);
}

BinaryPropertyListWriter::Container BinaryPropertyListWriter::dictionary(std::size_t count) {
    return container(kDictionary, count, 2 * count);
}

void BinaryPropertyListWriter::setRef(std::size_t offset, Ref ref) {
    putBigEndian(bytes_.data() + offset, ref, refWidth_);
}

void BinaryPropertyListWriter::setElement(const Container& array, std::size_t index, Ref child) {
    setRef(array.content + index * refWidth_, child);
}

void BinaryPropertyListWriter::setPair(const Container& dictionary, std::size_t index, Ref key,
                                       Ref value) {
    setRef(dictionary.content + index * refWidth_, key);
    setRef(dictionary.content + (dictionary.count + index) * refWidth_, value);
}

void BinaryPropertyListWriter::dropLast() {
    size_ = offsets_[--valueCount_];
}

Bytes BinaryPropertyListWriter::finish(Ref top) {
    const std::size_t table = size_;
    if (table > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("property list");
    }
    const std::size_t offsetWidth = widthOf(table);
    std::uint8_t* out = extend(valueCount_ * offsetWidth + kTrailerBytes);
    for (std::size_t i = 0; i < valueCount_; ++i) {
        // Eight bytes at once, of which what follows overwrites those behind the offset.
        putBigEndian64(out, std::uint64_t{offsets_[i]} << (64 - 8 * offsetWidth));
        out += offsetWidth;
    }
    std::fill_n(out, 6, std::uint8_t{0});
    out[6] = byteOf(offsetWidth);
    out[7] = byteOf(refWidth_);
    putBigEndian(out + 8, valueCount_, 8);
    putBigEndian(out + 16, top, 8);
    putBigEndian(out + 24, table, 8);
    bytes_.resize(size_);
    return std::move(bytes_);
}

} // namespace corvid
