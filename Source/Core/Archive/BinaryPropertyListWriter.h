#pragma once

#include "Core/Archive/FirstMemory.h"
#include "Core/Base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace corvid {

/// Writes a binary property list value by value, each with the encoding that the platform chooses:
/// the narrowest integer that holds a number without its sign bit, eight bytes for a negative one;
/// ASCII where the text allows, else UTF-16; references and offsets of 1, 2, 4 or 8 bytes.
/// Nothing is shared but what the caller refers to twice. One thread.
class BinaryPropertyListWriter {
public:
    /// The number of a value, counted from 0 in the order of writing.
    using Ref = std::size_t;

    /// A container whose children are still to be named.
    struct Container {
        Ref ref;
        std::size_t content;
        std::size_t count;
    };

    /// `valueCount`: how many values will be written, or more; it sets the width of references.
    /// `byteCount`: about how many bytes they take, for what to reserve; no more than a guess.
    BinaryPropertyListWriter(std::size_t valueCount, std::size_t byteCount);

    Ref boolean(bool value);
    Ref integer(std::int64_t value);
    Ref real(double value);
    /// Seconds since 1 January 2001, 00:00 UTC.
    Ref date(double seconds);
    Ref data(ByteView bytes);
    /// `utf8`: bytes that are not UTF-8 become U+FFFD.
    Ref text(std::string_view utf8);
    /// The text `kName`, which is ASCII and short. Half of what an archive says are such names, and
    /// one whose length the compiler knows is written by a store or two.
    template <const std::string_view& kName>
    Ref name() {
        static_assert(kName.size() < kLengthBehind);
        const Ref ref = begin();
        std::uint8_t* const out = extend(1 + kName.size());
        *out = static_cast<std::uint8_t>(kASCII | kName.size());
        std::memcpy(out + 1, kName.data(), kName.size());
        return ref;
    }
    Ref uid(std::uint64_t uid);

    Container array(std::size_t count);
    Container dictionary(std::size_t count);
    void setElement(const Container& array, std::size_t index, Ref child);
    void setPair(const Container& dictionary, std::size_t index, Ref key, Ref value);

    std::size_t valueCount() const { return valueCount_; }
    /// Forgets the last value, which nothing may refer to.
    void dropLast();

    /// Adds the table and the trailer and hands the list over; the writer is spent. Throws
    /// std::length_error when the values take 4 GiB, as a vector does that cannot grow.
    Bytes finish(Ref top);

private:
    // The kinds of values whose marker holds their count, too, where it is below kLengthBehind.
    static constexpr unsigned kData = 0x40;
    static constexpr unsigned kASCII = 0x50;
    static constexpr unsigned kUTF16 = 0x60;
    static constexpr unsigned kArray = 0xA0;
    static constexpr unsigned kDictionary = 0xD0;
    static constexpr std::size_t kLengthBehind = 15;

    Ref begin() {
        if (valueCount_ == offsets_.size()) {
            offsets_.resize(2 * valueCount_ + 1);
        }
        offsets_[valueCount_] = static_cast<std::uint32_t>(size_); // finish() sees that it fits.
        return valueCount_++;
    }
    Ref lastRef() const { return valueCount_ - 1; }
    /// Room for `size` bytes at the end, to be written at once.
    std::uint8_t* extend(std::size_t size) {
        if (size > bytes_.size() - size_) {
            grow(size);
        }
        std::uint8_t* const room = bytes_.data() + size_;
        size_ += size;
        return room;
    }
    void grow(std::size_t size);
    /// A marker with the count behind it and `size` bytes of content; gives where these go.
    std::uint8_t* begin(unsigned kind, std::size_t count, std::size_t size);
    Container container(unsigned kind, std::size_t count, std::size_t refs);
    Ref number(unsigned marker, std::uint64_t bits, std::size_t width);
    void setRef(std::size_t offset, Ref ref);

    // The first `size_` bytes and the first `valueCount_` offsets are written, the others room: so
    // a vector costs no more than an array.
    Bytes bytes_;
    std::size_t size_ = 0;
    FirstMemoryOf<1024> memory_;
    FirstVector<std::uint32_t> offsets_{memory_};
    std::size_t valueCount_ = 0;
    std::size_t refWidth_;
};

} // namespace corvid
