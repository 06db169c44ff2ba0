// Replies with menus: those of this project (Tests/Data/menus), and further ones, made from the
// item graphs of compiled interface files, where the folder of extra data is there.

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"
#include "Support/ArchiveNotation.h"
#include "Tests/Core/Archive/ArchiveComparison.h"
#include "Tests/Support/MenuArchiveFiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace corvid {
namespace {

class MenuArchives : public testing::TestWithParam<MenuArchiveFiles> {
protected:
    void SetUp() override {
        files_ = GetParam().files();
        if (files_.empty()) {
            GTEST_SKIP() << "CORVID_EXTRA_TEST_DATA is not set";
        }
    }

    static Notation description(std::filesystem::path file) {
        const Bytes json = readTestFile(file.replace_extension(".json"));
        return Notation::parse(json.begin(), json.end());
    }

    static Value decoded(const std::filesystem::path& file) {
        ArchiveError error;
        const auto value = unarchivedObject(readTestFile(file), &error);
        EXPECT_TRUE(value) << file << ": " << error.message();
        return value.value_or(Value());
    }

    std::vector<std::filesystem::path> files_;
};

TEST_P(MenuArchives, DecodeToTheirDescription) {
    for (const auto& file : files_) {
        std::string problem;
        EXPECT_EQ(notationOf(decoded(file), problem), description(file)) << file;
    }
}

TEST_P(MenuArchives, AreEqualAfterARoundTrip) {
    for (const auto& file : files_) {
        const Value once = decoded(file);
        ArchiveError error;
        const auto twice = unarchivedObject(archivedData(once), &error);
        ASSERT_TRUE(twice) << file << ": " << error.message();
        EXPECT_EQ(completeDescription(once), completeDescription(*twice)) << file;
    }
}

TEST_P(MenuArchives, EachItemGoesAloneWithItsFields) {
    for (const auto& file : files_) {
        const Value reply = decoded(file);
        ASSERT_NE(reply.asArray(), nullptr) << file;
        ASSERT_EQ(reply.asArray()->elements.size(), description(file).size()) << file;
        for (const Value& element : reply.asArray()->elements) {
            const auto item = element.asMenuItem();
            ASSERT_NE(item, nullptr) << file;
            const auto alone = unarchivedObject(
                archivedData(Value::dictionary({{"action", element}, {"path", Value::array({})}})));
            ASSERT_TRUE(alone) << file;
            const Value* action = alone->asDictionary()->find("action");
            ASSERT_NE(action, nullptr);
            EXPECT_EQ(completeDescription(*action), completeDescription(element)) << file;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Menus, MenuArchives, testing::ValuesIn(kMenuArchives), nameOfMenuArchives);

} // namespace
} // namespace corvid
