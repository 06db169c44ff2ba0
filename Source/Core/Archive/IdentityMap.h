#pragma once

#include "Core/Archive/FirstMemory.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvid {

/// From the identity of an object to its number in an archive. The keys lie in the order in which
/// they came, and a flat table with linear probing finds them: a message has a handful of objects,
/// or a hundred thousand, of which most are looked for once, so that the table alone is searched.
class IdentityMap {
public:
    /// What tells objects apart: an address, or for the kinds without one, what they say.
    struct Key {
        enum class Kind : std::uint32_t { address = 1, boolean, integer, real, date, null };

        Kind kind;
        std::uint64_t bits;

        friend bool operator==(const Key&, const Key&) = default;
    };

    /// `memory` must live as long as the map.
    explicit IdentityMap(FirstMemory& memory) : entries_(memory), slots_(memory) {}

    /// Makes room for `count` more keys.
    void expect(std::size_t count);

    /// The number under `key`, 0 when it is new. Valid until the next call.
    std::uint32_t& operator[](Key key);

private:
    struct Entry {
        std::uint64_t bits;
        Key::Kind kind;
        std::uint32_t number;

        Key key() const { return {kind, bits}; }
    };

    /// The slot of `key`: that which leads to its entry, or the free one where it belongs.
    std::uint32_t& slot(Key key);
    void resize(std::size_t size);

    FirstVector<Entry> entries_;
    FirstVector<std::uint32_t> slots_; ///< 0: free; else the place in `entries_`, from 1
};

} // namespace corvid
