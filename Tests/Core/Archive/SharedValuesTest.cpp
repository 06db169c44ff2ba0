// Values that many others refer to, and what shows values to people: nothing unfolds.

#include "Core/Archive/Menu.h"
#include "Support/ArchiveNotation.h"
#include "Support/ArchiveTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace corvid {
namespace {

// Lists of which each holds the one before twice: 2 to the 40 values.
Value doubling() {
    Value value = Value::string("innermost");
    for (int level = 0; level < 40; ++level) {
        value = Value::array({value, value});
    }
    return value;
}

Value manyTimes(const Value& value) {
    return Value::array(std::vector<Value>(10'000, value));
}

Value menuThatUnfolds() {
    auto item = std::make_shared<MenuItem>();
    for (int level = 0; level < 40; ++level) {
        auto above = std::make_shared<MenuItem>();
        above->submenu = std::make_shared<Menu>();
        above->submenu->items = {item, item};
        item = std::move(above);
    }
    return Value::menuItem(item);
}

const std::vector<std::pair<std::string, Value>>& hugeValues() {
    const std::string text(1'000'000, 't');
    static const std::vector<std::pair<std::string, Value>> all{
        {"array", doubling()},
        {"menu", menuThatUnfolds()},
        {"text", manyTimes(Value::string(text))},
        {"data", manyTimes(Value::data(Bytes(1'000'000)))},
        {"URL", manyTimes(Value::url(*URL::fileURL("/" + text)))},
        {"base", manyTimes(Value::url(*URL::fromText("x", *URL::fileURL("/" + text))))},
        {"key", manyTimes(Value::dictionary({{text, Value()}}))},
    };
    return all;
}

TEST(SharedValues, NotationHasABound) {
    for (const auto& [name, value] : hugeValues()) {
        std::string error;
        EXPECT_FALSE(notationOf(value, error, {20'000, 10'000'000})) << name;
        EXPECT_TRUE(error.starts_with("unfolds into more than ")) << name << ": " << error;
    }
}

TEST(SharedValues, NotationWithinTheBoundIsWhole) {
    std::string error;
    const Value value = Value::array({Value::string("12345"), Value::string("67890")});
    EXPECT_TRUE(notationOf(value, error, {3, 10}));
    EXPECT_FALSE(notationOf(value, error, {2, 10}));
    EXPECT_EQ(error, "unfolds into more than 2 values");
    EXPECT_FALSE(notationOf(value, error, {3, 9}));
    EXPECT_EQ(error, "unfolds into more than 9 bytes of text");
}

TEST(SharedValues, TreeShowsWhatIsLongOnce) {
    for (const auto& [name, value] : hugeValues()) {
        const std::string tree = archiveTree(value);
        EXPECT_LT(tree.size(), 5'000'000U) << name;
    }
    const std::string tree = archiveTree(manyTimes(Value::string("short")));
    EXPECT_EQ(std::ranges::count(tree, '\n'), 10'001);
    EXPECT_EQ(tree.find("above"), std::string::npos);
}

} // namespace
} // namespace corvid
