// Changes what a binary property list says, not only its bytes: lets a container refer to another
// value, a reference to another object, a value be of another kind or length.

#include "Core/Archive/BinaryPropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t limit);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t limit, unsigned seed) {
    using namespace corvid;
    using Kind = BinaryPropertyList::Kind;
    std::minstd_rand random(seed);
    if (random() % 4 == 0 || size < 40) {
        return LLVMFuzzerMutate(data, size, limit);
    }
    try {
        const BinaryPropertyList list({data, size});
        const auto item =
            list.item(static_cast<BinaryPropertyList::Ref>(random() % list.valueCount()));
        const std::size_t refWidth = data[size - 25];
        const auto put = [&](std::size_t offset, std::size_t width, std::size_t value) {
            for (std::size_t i = width; i-- > 0; value >>= 8U) {
                data[offset + i] = static_cast<std::uint8_t>(value & 0xFFU);
            }
        };
        const bool isContainer = item.kind == Kind::array || item.kind == Kind::dictionary;
        if (isContainer && item.count > 0) {
            const std::size_t places = item.count * (item.kind == Kind::dictionary ? 2 : 1);
            put(item.content + refWidth * (random() % places), refWidth,
                random() % list.valueCount());
        } else if (item.kind == Kind::uid) {
            put(item.content, item.count, random() % (list.valueCount() / 4 + 2));
        } else if (item.isString() && item.count > 0) {
            LLVMFuzzerMutate(data + item.content, item.count, item.count);
        } else if (random() % 2 == 0) {
            data[item.start] = static_cast<std::uint8_t>(random());
        } else {
            // Another value for this number: its offset becomes a random one.
            const std::size_t table = size - 32 - list.valueCount() * data[size - 26];
            put(table + data[size - 26] * (random() % list.valueCount()), data[size - 26],
                8 + random() % (table - 8));
        }
        return size;
    } catch (const ArchiveRefusal&) {
        return LLVMFuzzerMutate(data, size, limit);
    }
}
