#pragma once

#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <vector>

namespace corvid {

/// From the identity of an object to its number in an archive. A flat table with linear probing:
/// a message has a handful of objects, or a hundred thousand, and is encoded on every badge call.
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
    explicit IdentityMap(std::pmr::memory_resource* memory) : entries_(memory) {}

    /// Makes room for `count` more keys.
    void expect(std::size_t count);

    /// The number under `key`, 0 when it is new. Valid until the next call.
    std::uint32_t& operator[](Key key);

private:
    struct Entry {
        std::uint64_t bits = 0;
        std::uint32_t kind = 0; ///< 0: free
        std::uint32_t number = 0;
    };

    Entry& place(Key key);
    void resize(std::size_t size);

    std::pmr::vector<Entry> entries_;
    std::size_t used_ = 0;
};

} // namespace corvid
