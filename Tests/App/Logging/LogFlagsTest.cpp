#include "App/Logging/LogFlags.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

namespace corvid {
namespace {

using nlohmann::json;

json rawValueOrNull(std::optional<LogFlags> flags) {
    return flags.has_value() ? json(flags->rawValue()) : json(nullptr);
}

/// Every member applied to a pair, under the names of the recorded answers.
json answers(LogFlags a, LogFlags b) {
    json out{{"a", a.rawValue()},
             {"b", b.rawValue()},
             {"union", a.unionWith(b).rawValue()},
             {"intersection", a.intersection(b).rawValue()},
             {"symmetricDifference", a.symmetricDifference(b).rawValue()},
             {"subtracting", a.subtracting(b).rawValue()},
             {"contains", a.contains(b)},
             {"isSubset", a.isSubset(b)},
             {"isSuperset", a.isSuperset(b)},
             {"isStrictSubset", a.isStrictSubset(b)},
             {"isStrictSuperset", a.isStrictSuperset(b)},
             {"isDisjoint", a.isDisjoint(b)},
             {"isEmpty", a.isEmpty()}};
    LogFlags changed = a;
    const LogFlags::Insertion insertion = changed.insert(b);
    out["inserted"] = insertion.inserted;
    out["memberAfterInsert"] = insertion.memberAfterInsert;
    out["afterInsert"] = changed.rawValue();
    changed = a;
    out["removed"] = rawValueOrNull(changed.remove(b));
    out["afterRemove"] = changed.rawValue();
    changed = a;
    out["updated"] = rawValueOrNull(changed.update(b));
    out["afterUpdate"] = changed.rawValue();
    changed = a;
    changed.subtract(b);
    out["afterSubtract"] = changed.rawValue();
    return out;
}

TEST(LogFlags, AgreesWithTheRecordedOptionSet) {
    std::ifstream file(CORVID_TEST_DATA "/flags.jsonl");
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        const json expected = json::parse(line);
        EXPECT_EQ(answers(LogFlags(expected["a"].get<std::int32_t>()),
                          LogFlags(expected["b"].get<std::int32_t>())),
                  expected);
    }
    EXPECT_GT(count, 100);
}

TEST(LogFlags, FormsInPlaceAsItDoesByValue) {
    for (const std::int32_t a : {-1, 0, 5, 31, 0x40000000}) {
        for (const std::int32_t b : {-2, 0, 3, 31}) {
            LogFlags flags(a);
            flags.formUnion(LogFlags(b));
            EXPECT_EQ(flags.rawValue(), a | b);
            flags = LogFlags(a);
            flags.formIntersection(LogFlags(b));
            EXPECT_EQ(flags.rawValue(), a & b);
            flags = LogFlags(a);
            flags.formSymmetricDifference(LogFlags(b));
            EXPECT_EQ(flags.rawValue(), a ^ b);
        }
    }
}

TEST(LogFlags, IsMadeFromAListOfMembers) {
    const LogFlags all{LogFlags::error, LogFlags::warn, LogFlags::info, LogFlags::debug,
                       LogFlags::verbose};
    EXPECT_EQ(all.rawValue(), 31);
    EXPECT_EQ(LogFlags({}).rawValue(), 0);
    EXPECT_TRUE(LogFlags({}).isEmpty());
    EXPECT_EQ(LogFlags().rawValue(), 0);
    EXPECT_EQ(LogFlags({LogFlags::warn, LogFlags::warn}), LogFlags::warn);
}

TEST(LogFlags, CarriesBitsWithoutANameAlong) {
    LogFlags flags(0x7FFFFF00);
    EXPECT_EQ(flags.rawValue(), 0x7FFFFF00);
    flags.insert(LogFlags::error);
    EXPECT_EQ(flags.rawValue(), 0x7FFFFF01);
}

TEST(LogFlags, InsertingWhatIsThereSaysSo) {
    LogFlags flags = LogFlags::warn;
    EXPECT_FALSE(flags.insert(LogFlags::warn).inserted);
    EXPECT_EQ(flags, LogFlags::warn);
}

} // namespace
} // namespace corvid
