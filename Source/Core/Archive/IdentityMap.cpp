#include "Core/Archive/IdentityMap.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace corvid {

namespace {

constexpr std::size_t kFirstSize = 8;

// Objects that were made one after the other lie near each other, and are looked for in that order:
// what lies within one block of addresses goes to slots near each other too, so that a large table
// is reached in order, and blocks are scattered over it, so that no distance between objects makes
// them meet.
constexpr unsigned kAlignmentBits = 4;
constexpr unsigned kBlockBits = 16;

// The finaliser of SplitMix64.
std::uint64_t mixed(std::uint64_t bits) {
    bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
    return bits ^ (bits >> 31U);
}

std::uint64_t hash(IdentityMap::Key key) {
    return key.kind == IdentityMap::Key::Kind::address
               ? (key.bits >> kAlignmentBits) + mixed(key.bits >> kBlockBits)
               : mixed(key.bits + static_cast<unsigned>(key.kind));
}

} // namespace

std::uint32_t& IdentityMap::slot(Key key) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t index = static_cast<std::size_t>(hash(key)) & mask;
    while (slots_[index] != 0 && entries_[slots_[index] - 1].key() != key) {
        index = (index + 1) & mask;
    }
    return slots_[index];
}

void IdentityMap::expect(std::size_t count) {
    const std::size_t wanted = 2 * (entries_.size() + count); // At most half of the slots are used.
    if (wanted > slots_.size()) {
        resize(std::bit_ceil(std::max(wanted, kFirstSize)));
    }
}

void IdentityMap::resize(std::size_t size) {
    slots_.assign(size, 0);
    entries_.reserve(size / 2);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        slot(entries_[i].key()) = static_cast<std::uint32_t>(i + 1);
    }
}

std::uint32_t& IdentityMap::operator[](Key key) {
    expect(1);
    std::uint32_t& found = slot(key);
    if (found == 0) {
        entries_.push_back({key.bits, key.kind, 0});
        found = static_cast<std::uint32_t>(entries_.size());
    }
    return entries_[found - 1].number;
}

} // namespace corvid
