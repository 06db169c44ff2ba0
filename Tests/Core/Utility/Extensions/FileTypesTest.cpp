#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Tests/Core/Utility/Extensions/InCapitals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::Optional;

struct KindRow {
    const char* name;
    bool (*isOfKind)(std::string_view path);
    bool capitalsToo;
    std::vector<std::string> extensions;
};

const KindRow kKinds[] = {
    {"media",
     isMediaType,
     true,
     {"bmp", "raw", "cr2", "crw", "dng", "nef", "dwg", "gif", "jpg", "jpeg", "png", "tiff", "avi",
      "m4v", "mov", "mp4", "wmv"}},
    {"watermark", isWatermarkEligible, false, {"ppt",  "potm", "potx", "ppam", "ppsm",
                                               "ppsx", "pptm", "pptx", "doc",  "docm",
                                               "doct", "docx", "xlsx", "xlam", "xlsb",
                                               "xlsm", "xltm", "xltx", "xls",  "pdf"}},
    {"in use",
     isEligibleForInUseCheck,
     false,
     {"csv",  "doc",  "docm", "docx", "htm", "html",   "key",  "md",   "numbers", "pages",
      "ppt",  "pptx", "rtf",  "slk",  "tif", "xls",    "xlsb", "xlsm", "xlsx",    "xml",
      "aaf",  "aep",  "aepx", "aet",  "ai",  "ait",    "amx",  "eps",  "indb",    "indd",
      "indl", "indt", "indx", "pdf",  "prn", "prproj", "ps",   "psd",  "dwg"}},
    {"office", isOfficeFile, false, {"doc",  "dot",  "wbk",  "docx", "docm", "dotx", "dotm", "docb",
                                     "wll",  "xls",  "xlt",  "xlm",  "xll_", "xla_", "xla5", "xla8",
                                     "xlsx", "xlsm", "xltx", "xlsb", "xla",  "xll",  "xlw",  "ppt",
                                     "pot",  "pps",  "ppa",  "ppam", "pptx", "pptm", "potx", "potm",
                                     "ppsx", "ppsm", "sldx", "sldm", "pa"}},
    {"co-editing",
     isCoeditSupported,
     false,
     {"docx", "docm", "xlsx", "xlsm", "xlsb", "pptx", "ppsx"}},
    {"compressed", isCompressedFile, false, {"zip", "rar", "7z", "deb", "pkg", "rpm", "gz", "z"}},
};

// Each kind knows its own extensions, each other kind's only when they are in both lists, and no
// near miss of any.
TEST(FileTypesTest, knowsKindsByTheirExtensions) {
    std::set<std::string> all;
    for (const KindRow& kind : kKinds) {
        all.insert(kind.extensions.begin(), kind.extensions.end());
    }
    for (const KindRow& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const std::set<std::string> own(kind.extensions.begin(), kind.extensions.end());
        for (const std::string& extension : all) {
            SCOPED_TRACE(extension);
            const bool isOwn = own.contains(extension);
            EXPECT_EQ(kind.isOfKind("/a/b." + extension), isOwn);
            EXPECT_EQ(kind.isOfKind("/a/b.c." + extension + "/"), isOwn);
            EXPECT_EQ(kind.isOfKind("/a/b." + inCapitals(extension)), isOwn && kind.capitalsToo);
            EXPECT_EQ(kind.isOfKind("/a/b." + extension + "\u0301"), false);
            EXPECT_EQ(kind.isOfKind("/a/b." + extension + "~"), false);
            EXPECT_EQ(kind.isOfKind("/a/b." + extension + ".x~"), false);
            EXPECT_EQ(kind.isOfKind("/a/" + extension), false);
            EXPECT_EQ(kind.isOfKind("/a/." + extension), false);
            EXPECT_EQ(kind.isOfKind("/a." + extension + "/b"), false);
            const std::string shorter = extension.substr(0, extension.size() - 1);
            EXPECT_EQ(kind.isOfKind("/a/b." + shorter), own.contains(shorter));
        }
        EXPECT_FALSE(kind.isOfKind(""));
        EXPECT_FALSE(kind.isOfKind("/"));
    }
}

TEST(FileTypesTest, keepsItsListsAsTheyAre) {
    EXPECT_EQ(std::size(inUseCheckSupportedExtensionsSet), 39U);
    EXPECT_EQ(std::size(watermarkEligibleExtensions), 21U);
    EXPECT_EQ(std::set<std::string_view>(std::begin(watermarkEligibleExtensions),
                                         std::end(watermarkEligibleExtensions))
                  .size(),
              20U);
}

TEST(FileTypesTest, letsOnlyCapitalsOfItsOwnLettersBeSmall) {
    EXPECT_TRUE(isMediaType("photo.JpG"));
    EXPECT_FALSE(isMediaType("photo.g\u0130f"));
    EXPECT_FALSE(isMediaType("photo.\uFB01"));
    EXPECT_FALSE(isMediaType("photo.tif"));
    EXPECT_FALSE(isEligibleForInUseCheck("photo.tiff"));
    EXPECT_FALSE(isCompressedFile("archive.tgz"));
}

TEST(FileTypesTest, namesTheLockFileOfTheWholeString) {
    EXPECT_EQ(getOfficeLockFile("Report.docx"), "~$Report.docx");
    EXPECT_EQ(getOfficeLockFile("/a/Report.docx"), "~$/a/Report.docx");
    EXPECT_EQ(getOfficeLockFile(""), "~$");
}

TEST(FileTypesTest, knowsAddresses) {
    for (const std::string_view text : {"a@b.cd", "A.b_c%d+e-f@x-y.z.example", "1@2.ab",
                                        "a@b.abcdefghijklmnopqrst", "a@..ab", "%@-.ab"}) {
        EXPECT_TRUE(isEmail(text)) << text;
    }
    for (const std::string_view text :
         {"", "@b.cd", "a@.cd", "a@b.c", "a@bcd", "a@b.abcdefghijklmnopqrstu", "a@b.c1", "a@b@c.de",
          " a@b.cd", "a@b.cd ", "a@b.cd\n", "a@b.cd.", "a b@c.de", "a@b_c.de", "\u00E9@b.cd",
          "a@\u00E9.cd", "a.b@cde", "a@b.\u00E9\u00E9"}) {
        EXPECT_FALSE(isEmail(text)) << text;
    }
}

TEST(FileTypesTest, codesBase64) {
    // RFC 4648, section 10.
    const std::pair<std::string_view, std::string_view> pairs[] = {{"", ""},
                                                                   {"f", "Zg=="},
                                                                   {"fo", "Zm8="},
                                                                   {"foo", "Zm9v"},
                                                                   {"foob", "Zm9vYg=="},
                                                                   {"fooba", "Zm9vYmE="},
                                                                   {"foobar", "Zm9vYmFy"},
                                                                   {"abc", "YWJj"},
                                                                   {"\u00FF\u00BF>?", "w7/Cvz4/"}};
    for (const auto& [text, code] : pairs) {
        EXPECT_EQ(toBase64(text), code);
        EXPECT_EQ(fromBase64(code), text);
    }
    EXPECT_EQ(fromBase64("Zh=="), "f") << "bits left over are ignored";
    for (const std::string_view text : {"YWJj\n", " YWJj", "YW Jj", "YWJ", "YW=", "Y===", "====",
                                        "YQ==YQ==", "Y=Jj", "YW-_", "=", "/w==", "w7=="}) {
        EXPECT_EQ(fromBase64(text), std::nullopt) << text;
    }
}

TEST(FileTypesTest, readsColors) {
    const Color orange{1.0, 128 / 255.0, 0.0, 1.0};
    const Color black{0.0, 0.0, 0.0, 1.0};
    for (const std::string_view text :
         {"#ff8000", "FF8000", " \t#fF8000\r\n", "\u2003ff8000", "#\uFB008000", "ff8000\u0301"}) {
        EXPECT_EQ(colorFromHex(text), orange) << text;
    }
    for (const std::string_view text : {"GGGGGG", "#######", "000000", "0x0000", "\u00DF1234"}) {
        EXPECT_EQ(colorFromHex(text), black) << text;
    }
    EXPECT_EQ(colorFromHex("0x1234"), (Color{0.0, 0x12 / 255.0, 0x34 / 255.0, 1.0}));
    EXPECT_EQ(colorFromHex("12345G"), (Color{1 / 255.0, 0x23 / 255.0, 0x45 / 255.0, 1.0}));
    for (const std::string_view text : {"", "#", "#fff", "#ff80000", "##ff8000", "ff8000f",
                                        "#\uFB00800", "\u00DF12345", "#\u0301ff8000"}) {
        EXPECT_EQ(colorFromHex(text), kGrayColor) << text;
    }
}

TEST(FileTypesTest, copiesTheBytesOfValidText) {
    EXPECT_THAT(toPointer("a\u00E9"), Optional(ElementsAre(0x61, 0xC3, 0xA9)));
    EXPECT_THAT(toPointer(std::string_view("a\0", 2)), Optional(ElementsAre(0x61, 0)));
    EXPECT_THAT(toPointer(""), Optional(testing::IsEmpty()));
    EXPECT_EQ(toPointer("a\xC3"), std::nullopt);
}

TEST(FileTypesTest, knowsWhatNoPlatformTakesInAName) {
    for (char c = 0; c < 0x7F; ++c) {
        const bool isInvalid =
            c < 0x20 || std::string_view("\"<>|:*?\\").find(c) != std::string_view::npos;
        EXPECT_EQ(containsInvalidPlatformFileNameCharacters(std::string{'a', c}), isInvalid)
            << static_cast<int>(c);
    }
    EXPECT_TRUE(containsInvalidPlatformFileNameCharacters("a:\u0301b"));
    EXPECT_FALSE(containsInvalidPlatformFileNameCharacters("a/b"));
    EXPECT_FALSE(containsInvalidPlatformFileNameCharacters("\x7F\u0085\u00E9\u226E\xFF"));
    EXPECT_FALSE(containsInvalidPlatformFileNameCharacters(""));
}

TEST(FileTypesTest, knowsExtractedArchives) {
    for (const std::string_view path : {"a.BAH", "/x/a.BAHx", "/x/.BAH/", ".AU.x", "/x/.AU."}) {
        EXPECT_TRUE(isExtractedZip(path)) << path;
    }
    for (const std::string_view path : {"a.bah", "aBAH", "a.BA", "/a.BAH/x", ".AU", ".au.x",
                                        "x.AU.", "a.BAH\u0301", ".AU.\u0301", ""}) {
        EXPECT_FALSE(isExtractedZip(path)) << path;
    }
}

TEST(FileTypesTest, knowsWhatMayBeLogged) {
    for (const std::string_view path :
         {"/Favorites/x.txt", "/Favorites/", "Favorites", "/favorites", "/Shared Folder", "/a/b.c",
          "", "/a/.\u0301b"}) {
        EXPECT_TRUE(isLoggable(path)) << path;
    }
    for (const std::string_view path :
         {"/", "/Personal Folders", "/Shared Folders", "/Favorites", "/Personal Cloud", "/.hidden",
          "/x/.y", "/.x/y", ".x", "/x/.y/z", "a/../b"}) {
        EXPECT_FALSE(isLoggable(path)) << path;
    }
}

TEST(FileTypesTest, reducesIdentifiers) {
    EXPECT_EQ(reduceToItemIDComponent("a/b/Items(fo1234)"), "fo1234");
    EXPECT_EQ(reduceToItemIDComponent("Items(x)y)"), "xy");
    EXPECT_EQ(reduceToItemIDComponent("Items(Items(x))"), "x");
    EXPECT_EQ(reduceToItemIDComponent("ItemItems(s(x)"), "Items(x");
    EXPECT_EQ(reduceToItemIDComponent("items(x)"), "items(x");
    EXPECT_EQ(reduceToItemIDComponent("plain"), "plain");
    EXPECT_EQ(reduceToItemIDComponent("a/b/"), "");
    EXPECT_EQ(reduceToItemIDComponent(""), "");
    EXPECT_EQ(reduceToItemIDComponent("x)\u0301"), "x)\u0301");
}

TEST(FileTypesTest, tellsIdentifiersApart) {
    struct Row {
        std::string_view identifier;
        bool isPersonal;
        bool isLinkOrNote;
        bool isStandard;
    };
    constexpr Row rows[] = {
        {"fohx", true, false, true},       {"foh", true, false, true},
        {"FOHx", false, false, false},     {"fox", false, false, true},
        {"fo", false, false, true},        {"f", false, false, false},
        {"l1", false, true, false},        {"n1", false, true, false},
        {"L1", false, false, false},       {"N1", false, false, false},
        {"", false, false, false},         {"l\u0301", false, false, false},
        {"foh\u0301", false, false, true}, {"fo\u0301", false, false, false},
        {"xfoh", false, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.identifier);
        EXPECT_EQ(isPersonalFoldersID(row.identifier), row.isPersonal);
        EXPECT_EQ(isLinkOrNoteId(row.identifier), row.isLinkOrNote);
        EXPECT_EQ(isStandardCorvidFolder(row.identifier), row.isStandard);
    }
}

TEST(FileTypesTest, makesNumbersOfBooleans) {
    const Value one = toNumber(true);
    const Value zero = toNumber(false);
    ASSERT_NE(one.asInteger(), nullptr);
    ASSERT_NE(zero.asInteger(), nullptr);
    EXPECT_EQ(*one.asInteger(), 1);
    EXPECT_EQ(*zero.asInteger(), 0);
}

} // namespace
} // namespace corvid
