// Menus made from the item graphs of compiled interface files; extra data, not kept here.

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"
#include "Support/ArchiveNotation.h"
#include "Tests/Core/Archive/ArchiveComparison.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace corvid {
namespace {

std::string menusFolder() {
    const std::string extra = CORVID_EXTRA_TEST_DATA;
    return extra.empty() ? extra : extra + "/archives/menus";
}

class MenuArchives : public testing::Test {
protected:
    void SetUp() override {
        if (menusFolder().empty()) {
            GTEST_SKIP() << "CORVID_EXTRA_TEST_DATA is not set";
        }
        for (const auto& entry : std::filesystem::directory_iterator(menusFolder())) {
            if (entry.path().extension() == ".plist") {
                files_.push_back(entry.path());
            }
        }
        ASSERT_EQ(files_.size(), 30U);
    }

    static Value decoded(const std::filesystem::path& file) {
        ArchiveError error;
        const auto value = unarchivedObject(readTestFile(file), &error);
        EXPECT_TRUE(value) << file << ": " << error.message();
        return value.value_or(Value());
    }

    std::vector<std::filesystem::path> files_;
};

TEST_F(MenuArchives, DecodeToTheirDescription) {
    for (auto file : files_) {
        std::string problem;
        const auto notation = notationOf(decoded(file), problem);
        const Bytes json = readTestFile(file.replace_extension(".json"));
        EXPECT_EQ(notation, Notation::parse(json.begin(), json.end())) << file;
    }
}

TEST_F(MenuArchives, AreEqualAfterARoundTrip) {
    for (const auto& file : files_) {
        const Value once = decoded(file);
        ArchiveError error;
        const auto twice = unarchivedObject(archivedData(once), &error);
        ASSERT_TRUE(twice) << file << ": " << error.message();
        EXPECT_EQ(completeDescription(once), completeDescription(*twice)) << file;
    }
}

TEST_F(MenuArchives, EachItemGoesAloneWithItsFields) {
    std::size_t count = 0;
    for (const auto& file : files_) {
        const Value reply = decoded(file);
        ASSERT_NE(reply.asArray(), nullptr) << file;
        for (const Value& element : reply.asArray()->elements) {
            const auto item = element.asMenuItem();
            ASSERT_NE(item, nullptr) << file;
            const auto alone = unarchivedObject(
                archivedData(Value::dictionary({{"action", element}, {"path", Value::array({})}})));
            ASSERT_TRUE(alone) << file;
            const Value* action = alone->asDictionary()->find("action");
            ASSERT_NE(action, nullptr);
            EXPECT_EQ(completeDescription(*action), completeDescription(element)) << file;
            ++count;
        }
    }
    EXPECT_EQ(count, 169U);
}

} // namespace
} // namespace corvid
