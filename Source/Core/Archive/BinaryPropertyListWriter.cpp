#include "Core/Archive/BinaryPropertyListWriter.h"

#include "Core/Base/UTF8.h"

#include <algorithm>
#include <bit>
#include <string>

namespace corvid {

namespace {

constexpr std::string_view kHeader = "bplist00";
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

void putBigEndian(std::uint8_t* out, std::uint64_t value, std::size_t width) {
    for (std::size_t i = width; i-- > 0; value >>= 8U) {
        out[i] = byteOf(value);
    }
}

bool isASCII(std::string_view text) {
    unsigned all = 0;
    for (const char c : text) {
        all |= static_cast<unsigned char>(c);
    }
    return all < 0x80;
}

} // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter(std::size_t valueCount, std::size_t byteCount)
    : refWidth_(widthOf(valueCount)) {
    bytes_.reserve(byteCount);
    offsets_.reserve(valueCount);
    bytes_.assign(kHeader.begin(), kHeader.end());
}

void BinaryPropertyListWriter::bigEndian(std::uint64_t value, std::size_t width) {
    putBigEndian(extend(width), value, width);
}

void BinaryPropertyListWriter::marker(unsigned kind, std::size_t count) {
    if (count < 15) {
        bytes_.push_back(byteOf(kind | count));
        return;
    }
    bytes_.push_back(byteOf(kind | 15U));
    const std::size_t width = widthOf(count);
    bytes_.push_back(byteOf(0x10U | log2Of(width)));
    bigEndian(count, width);
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::boolean(bool value) {
    const Ref ref = begin();
    bytes_.push_back(value ? 0x09 : 0x08);
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::integer(std::int64_t value) {
    const Ref ref = begin();
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const std::size_t width = widthOf(bits);
    bytes_.push_back(byteOf(0x10U | log2Of(width)));
    bigEndian(bits, width);
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::real(double value) {
    const Ref ref = begin();
    bytes_.push_back(0x23);
    bigEndian(std::bit_cast<std::uint64_t>(value), 8);
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::date(double seconds) {
    const Ref ref = begin();
    bytes_.push_back(0x33);
    bigEndian(std::bit_cast<std::uint64_t>(seconds), 8);
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::data(ByteView bytes) {
    const Ref ref = begin();
    marker(0x40, bytes.size());
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::text(std::string_view utf8) {
    const Ref ref = begin();
    if (isASCII(utf8)) {
        marker(0x50, utf8.size());
        std::ranges::copy(utf8, extend(utf8.size()));
        return ref;
    }
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
    marker(0x60, units.size());
    std::uint8_t* out = extend(2 * units.size());
    for (const char16_t unit : units) {
        putBigEndian(out, unit, 2);
        out += 2;
    }
    return ref;
}

BinaryPropertyListWriter::Ref BinaryPropertyListWriter::uid(std::uint64_t uid) {
    const Ref ref = begin();
    const std::size_t width = widthOf(uid);
    std::uint8_t* out = extend(1 + width);
    *out = byteOf(0x80U | (width - 1));
    putBigEndian(out + 1, uid, width);
    return ref;
}

BinaryPropertyListWriter::Container BinaryPropertyListWriter::array(std::size_t count) {
    const Ref ref = begin();
    marker(0xA0, count);
    const Container container{ref, bytes_.size(), count};
    bytes_.resize(bytes_.size() + count * refWidth_);
    return container;
}

BinaryPropertyListWriter::Container BinaryPropertyListWriter::dictionary(std::size_t count) {
    const Ref ref = begin();
    marker(0xD0, count);
    const Container container{ref, bytes_.size(), count};
    bytes_.resize(bytes_.size() + 2 * count * refWidth_);
    return container;
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
    bytes_.resize(offsets_.back());
    offsets_.pop_back();
}

Bytes BinaryPropertyListWriter::finish(Ref top) {
    const std::size_t table = bytes_.size();
    const std::size_t offsetWidth = widthOf(table);
    std::uint8_t* out = extend(offsets_.size() * offsetWidth);
    for (const std::size_t offset : offsets_) {
        putBigEndian(out, offset, offsetWidth);
        out += offsetWidth;
    }
    bigEndian(0, 6);
    bytes_.push_back(byteOf(offsetWidth));
    bytes_.push_back(byteOf(refWidth_));
    bigEndian(offsets_.size(), 8);
    bigEndian(top, 8);
    bigEndian(table, 8);
    return std::move(bytes_);
}

} // namespace corvid
