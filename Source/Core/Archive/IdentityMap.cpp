#include "Core/Archive/IdentityMap.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace corvid {

namespace {

constexpr std::size_t kFirstSize = 16;

// The finaliser of SplitMix64: addresses differ in few bits, of which the low ones are zero.
std::uint64_t mixed(std::uint64_t bits) {
    bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
    return bits ^ (bits >> 31U);
}

} // namespace

IdentityMap::Entry& IdentityMap::place(Key key) {
    const auto kind = static_cast<std::uint32_t>(key.kind);
    const std::size_t mask = entries_.size() - 1;
    auto index = static_cast<std::size_t>(mixed(key.bits + kind)) & mask;
    while (entries_[index].kind != 0 &&
           (entries_[index].kind != kind || entries_[index].bits != key.bits)) {
        index = (index + 1) & mask;
    }
    return entries_[index];
}

void IdentityMap::expect(std::size_t count) {
    const std::size_t wanted = 2 * (used_ + count); // At most half of the entries are used.
    if (wanted > entries_.size()) {
        resize(std::bit_ceil(std::max(wanted, kFirstSize)));
    }
}

void IdentityMap::resize(std::size_t size) {
    std::pmr::vector<Entry> old(size, entries_.get_allocator());
    std::swap(old, entries_);
    for (const Entry& entry : old) {
        if (entry.kind != 0) {
            place({static_cast<Key::Kind>(entry.kind), entry.bits}) = entry;
        }
    }
}

std::uint32_t& IdentityMap::operator[](Key key) {
    expect(1);
    Entry& entry = place(key);
    if (entry.kind == 0) {
        entry.kind = static_cast<std::uint32_t>(key.kind);
        entry.bits = key.bits;
        ++used_;
    }
    return entry.number;
}

} // namespace corvid
