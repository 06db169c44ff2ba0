#include "Core/Utility/Extensions/CVMAStringExtension.h"

#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <utility>

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

struct PathRow {
    std::string_view path;
    std::string_view last;
    std::string_view extension;
    std::string_view parent;
    std::string_view withoutExtension;
};

constexpr PathRow kPaths[] = {
    {"/tmp/scratch.tiff", "scratch.tiff", "tiff", "/tmp", "/tmp/scratch"},
    {"/tmp/scratch", "scratch", "", "/tmp", "/tmp/scratch"},
    {"/tmp/lock/", "lock", "", "/tmp", "/tmp/lock"},
    {"/tmp/", "tmp", "", "/", "/tmp"},
    {"/tmp", "tmp", "", "/", "/tmp"},
    {"/", "/", "", "/", "/"},
    {"//", "/", "", "/", "/"},
    {"", "", "", "", ""},
    {"scratch.tiff", "scratch.tiff", "tiff", "", "scratch"},
    {"scratch///", "scratch", "", "", "scratch"},
    {"scratch.bundle/", "scratch.bundle", "bundle", "", "scratch"},
    {"scratch..tiff", "scratch..tiff", "tiff", "", "scratch."},
    {".tiff", ".tiff", "", "", ".tiff"},
    {".scratch.tiff", ".scratch.tiff", "tiff", "", ".scratch"},
    {"..tiff", "..tiff", "tiff", "", "."},
    {"..", "..", "", "", ".."},
    {"...", "...", "", "", "..."},
    {"name.", "name.", "", "", "name."},
    {"/a.b/c", "c", "", "/a.b", "/a.b/c"},
    {"/a//b.c", "b.c", "c", "/a", "/a//b"},
    {"//a", "a", "", "/", "//a"},
    {"a//b//", "b", "", "a", "a//b"},
    {"a.b c", "a.b c", "b c", "", "a"},
    {"file:///Volumes/Corvid/a.b", "a.b", "b", "file:///Volumes/Corvid",
     "file:///Volumes/Corvid/a"},
    {"file:///a", "a", "", "file:", "file:///a"},
    // Separators count whatever mark is drawn onto them.
    {"a/\u0301b", "\u0301b", "", "a", "a/\u0301b"},
    {"a.\u0301b", "a.\u0301b", "\u0301b", "", "a"},
    {"a/\xFF.\xC3", "\xFF.\xC3", "\xC3", "a", "a/\xFF"},
};

TEST(PathStringsTest, takesPathsApart) {
    for (const PathRow& row : kPaths) {
        SCOPED_TRACE(testing::PrintToString(row.path));
        EXPECT_EQ(lastPathComponent(row.path), row.last);
        EXPECT_EQ(pathExtension(row.path), row.extension);
        EXPECT_EQ(stringByDeletingLastPathComponent(row.path), row.parent);
        EXPECT_EQ(deletingLastPathComponent(row.path), row.parent);
        EXPECT_EQ(stringByDeletingPathExtension(row.path), row.withoutExtension);
        EXPECT_EQ(deletePathExtension(row.path), row.withoutExtension);
    }
}

// A caller may keep a result for as long as the path lives.
TEST(PathStringsTest, resultsArePartsOfThePath) {
    for (const PathRow& row : kPaths) {
        SCOPED_TRACE(testing::PrintToString(row.path));
        const auto isPart = [&row](std::string_view result) {
            return result.data() >= row.path.data() &&
                   result.data() + result.size() <= row.path.data() + row.path.size();
        };
        EXPECT_TRUE(isPart(lastPathComponent(row.path)));
        EXPECT_TRUE(isPart(pathExtension(row.path)));
        EXPECT_TRUE(isPart(stringByDeletingLastPathComponent(row.path)));
        EXPECT_TRUE(isPart(stringByDeletingPathExtension(row.path)));
    }
}

TEST(PathStringsTest, listsComponents) {
    EXPECT_THAT(pathComponents("tmp/scratch"), ElementsAre("tmp", "scratch"));
    EXPECT_THAT(pathComponents("/tmp/scratch"), ElementsAre("/", "tmp", "scratch"));
    EXPECT_THAT(pathComponents("/tmp/scratch/"), ElementsAre("/", "tmp", "scratch", "/"));
    EXPECT_THAT(pathComponents("tmp//scratch//"), ElementsAre("tmp", "scratch", "/"));
    EXPECT_THAT(pathComponents("/"), ElementsAre("/"));
    EXPECT_THAT(pathComponents("//"), ElementsAre("/"));
    EXPECT_THAT(pathComponents(""), IsEmpty());
}

TEST(PathStringsTest, joinsByOneSeparator) {
    EXPECT_EQ(stringByAppendingPathComponent("/tmp", "scratch.tiff"), "/tmp/scratch.tiff");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp/", "scratch.tiff"), "/tmp/scratch.tiff");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp//", "//scratch.tiff"), "/tmp/scratch.tiff");
    EXPECT_EQ(stringByAppendingPathComponent("/", "scratch.tiff"), "/scratch.tiff");
    EXPECT_EQ(stringByAppendingPathComponent("", "scratch.tiff"), "scratch.tiff");
    EXPECT_EQ(stringByAppendingPathComponent("", "/scratch.tiff/"), "/scratch.tiff");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp/", ""), "/tmp");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp", "/"), "/tmp");
    EXPECT_EQ(stringByAppendingPathComponent("a//b", "c"), "a//b/c");
    EXPECT_EQ(stringByAppendingPathComponent("", ""), "");
}

TEST(PathStringsTest, appendsExtensions) {
    EXPECT_EQ(stringByAppendingPathExtension("/tmp/scratch.old", "tiff"), "/tmp/scratch.old.tiff");
    EXPECT_EQ(stringByAppendingPathExtension("/tmp/scratch.", "tiff"), "/tmp/scratch..tiff");
    EXPECT_EQ(stringByAppendingPathExtension("/tmp/", "tiff"), "/tmp.tiff");
    EXPECT_EQ(stringByAppendingPathExtension("scratch", "tiff"), "scratch.tiff");
    EXPECT_EQ(stringByAppendingPathExtension("", "tiff"), std::nullopt);
    EXPECT_EQ(stringByAppendingPathExtension("/", "tiff"), std::nullopt);
    EXPECT_EQ(stringByAppendingPathExtension("//", "tiff"), std::nullopt);
}

TEST(PathStringsTest, truncatesByCharacters) {
    EXPECT_EQ(truncateString("Documents", 5), "Docum\u2026");
    EXPECT_EQ(truncateString("Docs", 5), "Docs");
    EXPECT_EQ(truncateString("Docum", 5), "Docum");
    EXPECT_EQ(truncateString("Docs", 0), "\u2026");
    EXPECT_EQ(truncateString("", 0), "");
    EXPECT_EQ(truncateString("Documents", 3, "..."), "Doc...");
    EXPECT_EQ(truncateString("Documents", 3, ""), "Doc");
    EXPECT_EQ(truncateString("e\u0301te\u0301", 2), "e\u0301t\u2026");
    EXPECT_EQ(truncateString("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7", 1),
              "\U0001F1E9\U0001F1EA\u2026");
    EXPECT_EQ(truncateString("\r\nab", 1), "\r\n\u2026");
    EXPECT_EQ(truncateString("\u1100\u1161\u11A8x", 1), "\u1100\u1161\u11A8\u2026");
    EXPECT_EQ(truncateString("\xFF\xFFx", 2), "\xFF\xFF\u2026");
}

TEST(PathStringsDeathTest, stopsAtANegativeLength) {
    EXPECT_DEATH(truncateString("Docs", -1), "negative length");
    EXPECT_DEATH(truncateString("", -1), "negative length");
}

TEST(PathStringsTest, insertsBeforeTheExtension) {
    EXPECT_EQ(insertStringBeforeExtension("Report.pdf", "2"), "Report 2.pdf");
    EXPECT_EQ(insertStringBeforeExtension("Notes", "copy"), "Notes copy");
    EXPECT_EQ(insertStringBeforeExtension("a.txt.b.txt", "x"), "a.b x.txt");
    EXPECT_EQ(insertStringBeforeExtension("a.txtb.txt", "x"), "ab x.txt");
    EXPECT_EQ(insertStringBeforeExtension("/a.d/b.d", "x"), "/a/b x.d");
    EXPECT_EQ(insertStringBeforeExtension("a.TXT.txt", "x"), "a.TXT x.txt");
    EXPECT_EQ(insertStringBeforeExtension("name.", "x"), "name. x");
    EXPECT_EQ(insertStringBeforeExtension("", "x"), " x");
    // The same extension in another spelling; and one that only begins alike.
    EXPECT_EQ(insertStringBeforeExtension("a.\u00E9.e\u0301", "x"), "a x.e\u0301");
    EXPECT_EQ(insertStringBeforeExtension("a.e\u0301.e", "x"), "a.e\u0301 x.e");
}

TEST(PathStringsTest, deletesPrefixes) {
    EXPECT_EQ(deletingPrefix("/Volumes/Corvid/a", "/Volumes/Corvid"), "/a");
    EXPECT_EQ(deletingPrefix("/Volumes/Other/a", "/Volumes/Corvid"), "/Volumes/Other/a");
    EXPECT_EQ(deletingPrefix("abc", ""), "abc");
    EXPECT_EQ(deletingPrefix("abc", "abc"), "");
    EXPECT_EQ(deletingPrefix("ab", "abc"), "ab");
    EXPECT_EQ(deletingPrefix("\u00E9a", "e\u0301"), "a");
    EXPECT_EQ(deletingPrefix("e\u0301a", "e"), "e\u0301a");
    EXPECT_EQ(deletingPrefix("\u212Aa", "K"), "a");
    EXPECT_EQ(deletingPrefix("\xFF\x61", "\uFFFD"), "a");
}

TEST(PathStringsTest, seesWhatIsHidden) {
    struct Row {
        std::string_view path;
        bool itself;
        bool parent;
        bool ignored;
    };
    constexpr Row rows[] = {
        {"/a/.b", true, false, true},  {"/a/b.c", false, false, false},
        {"/.x/y", false, true, true},  {"/", false, false, false},
        {"", false, false, false},     {".profile", true, false, true},
        {"/.file", true, false, true}, {"/a/.git/c", false, true, true},
        {"/a/b", false, false, false}, {"a/../b", false, true, true},
        {"./b", false, true, true},    {"/a/.\u0301b", false, false, false},
        {"/a/b/.", true, false, true}, {"/.\u0301a", false, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(isHidden(row.path), row.itself);
        EXPECT_EQ(isAnyParentHidden(row.path), row.parent);
        EXPECT_EQ(ignorable(row.path), row.ignored);
    }
}

TEST(PathStringsTest, knowsTheLocalizedMarker) {
    for (const std::string_view path :
         {"/a/.localized", "/a/.Localized", "/a/.LOCALIZED/", ".lOcAlIzEd"}) {
        EXPECT_TRUE(forcePreemptiveAttributeNotFound(path)) << path;
    }
    for (const std::string_view path :
         {"/a/localized", "/a/.localize", "/a/.localizedx", "/.localized/a", "/a/..localized",
          ".local\u0130zed", ".local\u0131zed", ".localized\u0301", ""}) {
        EXPECT_FALSE(forcePreemptiveAttributeNotFound(path)) << path;
    }
}

TEST(PathStringsTest, rootsAreSlashes) {
    EXPECT_EQ(kPathDelimiter, "/");
    EXPECT_EQ(kMFRootPathPrefix, "/");
    EXPECT_EQ(AdobeTemporaryNumericCharacterCount, 10);
}

} // namespace
} // namespace corvid
