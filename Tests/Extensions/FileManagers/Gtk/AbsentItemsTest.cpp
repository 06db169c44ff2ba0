#include "Extensions/FileManagers/Gtk/AbsentItems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace corvid::gtk {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;

class AbsentItemsTest : public ::testing::Test {
protected:
    void look(AbsentItems::Clock::duration time, AbsentItems::Clock::duration slice) {
        seen.clear();
        items.lookFor(
            [this](const std::string& path) {
                seen.push_back(path);
                return there.contains(path);
            },
            begin + time, slice);
    }

    static constexpr std::chrono::hours kLong{1};
    const AbsentItems::Clock::time_point begin = AbsentItems::Clock::now();
    AbsentItems items;
    std::set<std::string> there;
    std::vector<std::string> seen;
};

TEST_F(AbsentItemsTest, AreLookedForUntilTheyAreThere) {
    EXPECT_TRUE(items.isEmpty());
    items.add("a", begin);
    items.add("b", begin);
    there = {"b"};
    look(milliseconds(0), kLong);
    EXPECT_THAT(seen, ElementsAre("a", "b"));
    look(milliseconds(50), kLong);
    EXPECT_THAT(seen, ElementsAre("a"));
    there = {"a"};
    look(milliseconds(100), kLong);
    EXPECT_TRUE(items.isEmpty());
}

TEST_F(AbsentItemsTest, ASliceGoesOnWhereTheOneBeforeEnded) {
    for (const char* const path : {"a", "b", "c"}) {
        items.add(path, begin);
    }
    std::vector<std::string> all;
    while (all.size() < 4) {
        look(milliseconds(0), std::chrono::nanoseconds(1));
        ASSERT_GE(seen.size(), 1u);
        all.insert(all.end(), seen.begin(), seen.end());
    }
    all.resize(4);
    EXPECT_THAT(all, ElementsAre("a", "b", "c", "a"));
}

TEST_F(AbsentItemsTest, AreForgottenWhenNoneComes) {
    items.add("a", begin);
    items.add("b", begin);
    look(AbsentItems::kPatience, kLong);
    EXPECT_FALSE(items.isEmpty());
    there = {"b"};
    look(AbsentItems::kPatience + milliseconds(1), kLong);
    EXPECT_FALSE(items.isEmpty()) << "one has just come";
    look(2 * AbsentItems::kPatience + milliseconds(2), kLong);
    EXPECT_TRUE(items.isEmpty());
}

TEST_F(AbsentItemsTest, AreNotMoreThanTheirBound) {
    for (std::size_t i = 0; i <= AbsentItems::kMaxItems; ++i) {
        items.add(std::to_string(i), begin);
    }
    look(milliseconds(0), kLong);
    EXPECT_EQ(seen.size(), AbsentItems::kMaxItems);
}

} // namespace
} // namespace corvid::gtk
