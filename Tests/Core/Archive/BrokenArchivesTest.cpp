#include "Tests/Core/Archive/BrokenArchives.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/PropertyList.h"
#include "Tests/Support/BytesOf.h"

#include <gtest/gtest.h>

#include <set>

namespace corvid {

void PrintTo(const ArchiveError& error, std::ostream* out) {
    *out << name(error.code) << " (" << error.message() << ")";
}

namespace {

TEST(BrokenArchives, AreRefusedForTheirReason) {
    for (const BrokenArchive& broken : brokenArchives()) {
        ArchiveError error;
        const auto value = unarchivedObject(broken.bytes, &error);
        EXPECT_FALSE(value) << broken.name;
        EXPECT_EQ(error, broken.error) << broken.name;
    }
}

TEST(BrokenArchives, NeedNoErrorToBeAskedFor) {
    EXPECT_FALSE(unarchivedObject(bytesOf("no archive")));
    EXPECT_FALSE(propertyListValue(bytesOf("no list")));
}

TEST(BrokenArchives, CoverEveryError) {
    std::set<ArchiveError::Code> seen;
    const auto all = brokenArchives();
    for (const BrokenArchive& broken : all) {
        seen.insert(broken.error.code);
    }
    for (int code = 0; code <= static_cast<int>(ArchiveError::Code::badBase64); ++code) {
        const auto each = static_cast<ArchiveError::Code>(code);
        EXPECT_TRUE(seen.contains(each)) << name(each);
    }
    EXPECT_GE(all.size(), 80U);
}

TEST(BrokenArchives, EveryPrefixOfAnArchiveIsRefused) {
    const Bytes whole = archivedData(
        Value::dictionary({{"badgeID", Value::string("cloud")},
                           {"path", Value::url(*URL::fileURL("/Volumes/Corvid/Report.docx"))}}));
    ASSERT_TRUE(unarchivedObject(whole));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(unarchivedObject(ByteView(whole).first(size))) << size;
    }
}

TEST(BrokenArchives, EveryPrefixInXMLIsRefused) {
    const Bytes whole = bytesOf(archiveXML("<string>$null</string><string>a&amp;b</string>"));
    ASSERT_TRUE(unarchivedObject(whole));
    // The last byte is a newline behind the list.
    for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
        EXPECT_FALSE(unarchivedObject(ByteView(whole).first(size))) << size;
    }
}

} // namespace
} // namespace corvid
