// Archives that the open-source Foundation wrote, beside an index of what each holds.

#include "Core/Archive/KeyedArchive.h"
#include "Support/ArchiveNotation.h"
#include "Tests/Core/Archive/ArchiveComparison.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace corvid {
namespace {

const std::string kFolder = CORVID_TEST_DATA "/archives/";

struct Entry {
    std::string file;
    Notation root;
};

std::vector<Entry> index() {
    std::vector<Entry> entries;
    std::ifstream in(kFolder + "INDEX.jsonl");
    for (std::string line; std::getline(in, line);) {
        const Notation entry = Notation::parse(line);
        entries.push_back({entry["file"].get<std::string>(), entry["root"]});
    }
    return entries;
}

// The notation says neither which objects are one nor which are mutable.
bool isBeyondTheNotation(const std::string& file) {
    return file == "reply_mutable.archive" || file == "requestActions_shared_object.archive";
}

TEST(FoundationArchives, AreAllThere) {
    EXPECT_EQ(index().size(), 58U);
}

TEST(FoundationArchives, DecodeToWhatTheIndexSays) {
    for (const auto& [file, root] : index()) {
        ArchiveError error;
        const auto value = unarchivedObject(readTestFile(kFolder + file), &error);
        ASSERT_TRUE(value) << file << ": " << error.message();
        std::string problem;
        EXPECT_EQ(notationOf(*value, problem), root) << file;
    }
}

TEST(FoundationArchives, AreWrittenAlikeFromTheIndex) {
    for (const auto& [file, root] : index()) {
        std::string problem;
        const auto value = valueOf(root, problem);
        ASSERT_TRUE(value) << file << ": " << problem;
        const bool isEqual = comparableLayout(archivedData(*value)) ==
                             comparableLayout(readTestFile(kFolder + file));
        EXPECT_NE(isEqual, isBeyondTheNotation(file)) << file;
    }
}

TEST(FoundationArchives, AreWrittenAlikeFromWhatWasRead) {
    for (const auto& [file, root] : index()) {
        const Bytes original = readTestFile(kFolder + file);
        const auto value = unarchivedObject(original);
        ASSERT_TRUE(value) << file;
        EXPECT_EQ(comparableLayout(archivedData(*value)), comparableLayout(original)) << file;
    }
}

TEST(FoundationArchives, KeepOneObjectOne) {
    const auto value =
        unarchivedObject(readTestFile(kFolder + "requestActions_shared_object.archive"));
    ASSERT_TRUE(value);
    const auto& paths = value->asDictionary()->find("paths")->asArray()->elements;
    ASSERT_EQ(paths.size(), 3U);
    EXPECT_TRUE(paths[0].isSameObject(paths[1]));
    EXPECT_TRUE(paths[0].isSameObject(paths[2]));
}

TEST(FoundationArchives, KeepAMutableArrayMutable) {
    const auto value = unarchivedObject(readTestFile(kFolder + "reply_mutable.archive"));
    ASSERT_TRUE(value);
    EXPECT_TRUE(value->asArray()->isMutable);
    EXPECT_FALSE(value->asArray()->elements[1].asDictionary()->isMutable);
}

} // namespace
} // namespace corvid
