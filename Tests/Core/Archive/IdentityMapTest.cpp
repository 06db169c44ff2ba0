#include "Core/Archive/IdentityMap.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace corvid {
namespace {

using Key = IdentityMap::Key;
using Kind = Key::Kind;

// Adds the keys that `key` makes of the numbers from 1 on and finds all of them again.
template <class MakeKey>
void addAndFind(MakeKey key) {
    constexpr std::uint32_t kCount = 100'000;
    // A tenth of a second is enough; slots that all keys share take minutes.
    constexpr auto kDeadline = std::chrono::seconds(10);
    FirstMemoryOf<64> memory;
    IdentityMap map(memory);
    const auto start = std::chrono::steady_clock::now();
    for (std::uint32_t i = 1; i <= kCount; ++i) {
        std::uint32_t& number = map[key(i)];
        ASSERT_EQ(number, 0U) << i;
        number = i;
    }
    for (std::uint32_t i = kCount; i > 0; --i) {
        ASSERT_EQ(map[key(i)], i);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, kDeadline);
}

TEST(IdentityMapTest, TellsObjectsApartAtAnyDistance) {
    constexpr std::uint64_t kStart = 0x7F00'0000'1000;
    // Those of small objects, of objects between others, of pages and of whole mappings.
    for (const std::uint64_t distance : {16U, 32U, 48U, 80U, 96U, 112U, 144U, 272U, 1'008U, 4'096U,
                                         4'112U, 65'536U, 65'552U, 1'048'576U, 2'097'152U}) {
        SCOPED_TRACE(distance);
        addAndFind([&](std::uint32_t i) { return Key{Kind::address, kStart + i * distance}; });
    }
}

TEST(IdentityMapTest, TellsNumbersApart) {
    addAndFind([](std::uint32_t i) { return Key{Kind::integer, i}; });
    addAndFind([](std::uint32_t i) { return Key{Kind::integer, std::uint64_t{i} << 32U}; });
    addAndFind([](std::uint32_t i) { return Key{Kind::real, std::uint64_t{i} << 40U}; });
}

TEST(IdentityMapTest, TellsKindsApart) {
    FirstMemoryOf<64> memory;
    IdentityMap map(memory);
    map[{Kind::boolean, 1}] = 1;
    map[{Kind::integer, 1}] = 2;
    map[{Kind::real, 1}] = 3;
    map[{Kind::null, 1}] = 4;
    EXPECT_EQ((map[{Kind::boolean, 1}]), 1U);
    EXPECT_EQ((map[{Kind::integer, 1}]), 2U);
    EXPECT_EQ((map[{Kind::real, 1}]), 3U);
    EXPECT_EQ((map[{Kind::null, 1}]), 4U);
}

} // namespace
} // namespace corvid
