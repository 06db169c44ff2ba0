// One row a case of the rules for temporary items, each with near misses: another case, a
// character fewer, a dot more or fewer, a mark on a character of the literal. A row is tried as a
// plain path and as the file URL's text, which is what the controller tests.

#include "Core/Base/URL.h"
#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Tests/Core/Utility/Extensions/InCapitals.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::Optional;

constexpr bool kTemporary = true;
constexpr bool kShown = false;

struct NameRow {
    std::string_view name;
    bool asPath;
    bool asURL;
    constexpr NameRow(std::string_view text, bool answer)
        : name(text), asPath(answer), asURL(answer) {}
    // For the names whose escapes hide them from a rule, or that escapes do not hide.
    constexpr NameRow(std::string_view text, bool path, bool url)
        : name(text), asPath(path), asURL(url) {}
};

// Names of items directly below /Volumes/Corvid.
constexpr NameRow kNames[] = {
    {"Report.docx", kShown},
    {"Report", kShown},

    // A name, or a folder above, that begins with a dot.
    {".DS_Store", kTemporary},
    {".git/config", kTemporary},
    {"a/.b/c/d", kTemporary},
    {"..a/b", kTemporary},
    {"../Report.docx", kTemporary},
    {"./Report.docx", kTemporary},
    {"a.git/config", kShown},
    {"a./b", kShown},
    {"\u2024DS_Store", kShown},
    // A dot with a mark is another character; its escape is not.
    {".\u0301a", kShown, kTemporary},
    {".\u0301a/b", kShown, kTemporary},

    // Office owner files.
    {"~$Report.docx", kTemporary},
    {"~$Report.doc", kTemporary},
    {"~$Report.xlsx", kTemporary},
    {"~$Report.xls", kTemporary},
    {"~$Report.ppt", kTemporary},
    {"~$Report.pptx", kTemporary},
    {"~$.docx", kTemporary},
    {"~$Report.DOCX", kShown},
    {"~$Report.pdf", kShown},
    {"~$Report.docm", kShown},
    {"~$Report.doc.", kShown},
    {"~$Report.xlsx ", kShown},
    {"~$Report", kShown},
    {"~Report.docx", kShown},
    {"$Report.docx", kShown},
    {"~ $Report.docx", kShown},
    {"~$\u0301Report.docx", kShown, kTemporary},
    {"~\u0301$Report.docx", kShown},
    {"~$Report.docx\u0301", kShown},

    // Lock files.
    {"~Report.idlk", kTemporary},
    {"~.idlk", kTemporary},
    {"Report.idlk", kShown},
    {"~Report.IDLK", kShown},
    {"~Report.idl", kShown},
    {"~idlk", kShown},
    {"~\u0301Report.idlk", kShown, kTemporary},

    // Backups.
    {"Report.txt~", kTemporary},
    {"a.~", kTemporary},
    {"Report~", kShown},
    {"Report.txt~1", kShown},
    {"Report.~txt", kShown},
    {"Report.txt~\u0301", kShown},

    // Editors' saves in progress.
    {"Poster.psd1234567890", kTemporary},
    {"Poster.pdf1234567890", kTemporary},
    {"Poster.ps1234567890", kTemporary},
    {"Poster.jpg1234567890", kTemporary},
    {"Poster.jpeg1234567890", kTemporary},
    {"Poster.png1234567890", kTemporary},
    {"Poster.ers1234567890", kTemporary},
    {"Poster.prn1234567890", kTemporary},
    {"Poster.ai1234567890", kTemporary},
    {"Poster.ait1234567890", kTemporary},
    {"Poster.i1234567890", kTemporary},
    {"Poster.indd1234567890", kTemporary},
    {"Poster.psd-123456789", kTemporary},
    {"Poster.psd+123456789", kTemporary},
    {"Poster.psd12345678901", kTemporary},
    {"Poster.psdx1234567890", kTemporary},
    {"Poster.psd123456789", kShown},
    {"Poster.psd--12345678", kShown},
    {"Poster.psd123456789a", kShown},
    {"Poster.PSD1234567890", kShown},
    {"Poster.mov1234567890", kShown},
    {"Poster.pn1234567890", kShown},
    {"Poster.1234567890", kShown},
    {"Poster.psd1234567890.x", kShown},
    {"psd1234567890", kShown},
    {"Poster.psd123456789\u0660", kShown},
    {"Poster.psd\u06611234567890", kTemporary},
    // The eleventh character from the end takes the mark, and the prefix stays whole.
    {"Poster.psd\u03011234567890", kTemporary},
    {"Poster.i\u03011234567890", kShown, kTemporary},

    // Safe saves in a folder of their own.
    {"(A Document Being Saved By Pages)", kTemporary, kShown},
    {"(A Document Being Saved By", kTemporary, kShown},
    {"(A Document Being Saved B", kShown},
    {"(a Document Being Saved By Pages)", kShown},
    {"A Document Being Saved By Pages", kShown},
    {"(A Document Being Saved By\u0301", kShown},

    // Sketch.
    {"Icons~.sketch", kTemporary},
    {"~.sketch", kTemporary},
    {"Icons.sketch", kShown},
    {"Icons~.Sketch", kShown},
    {"Icons~.sketc", kShown},
    {"Icons~.sketch2", kShown},
    {"Icons~\u0301.sketch", kShown},
    // A prepended mark makes one character of itself and "~".
    {"\u0600~.sketch", kShown, kTemporary},

    // Photoshop, without a dot in the name; a URL has no blank.
    {"Adobe Photoshop Autosave", kTemporary, kShown},
    {"Adobe Photoshop ", kTemporary, kShown},
    {"Adobe Photoshop", kShown},
    {"Adobe Photoshop Autosave.psd", kShown},
    {"Adobe photoshop Autosave", kShown},

    // After Effects.
    {"AEtemp-1", kTemporary},
    {"AEtemp-", kTemporary},
    {"AEtemp-1.mov", kTemporary},
    {"AEtemp1", kShown},
    {"aetemp-1", kShown},
    {"xAEtemp-1", kShown},
    {"AEtemp-\u0301", kShown, kTemporary},
    {"Comp.final.aep", kTemporary},
    {"Comp..aep", kTemporary},
    {"Comp.final.xaep", kTemporary},
    {"Comp.aep", kShown},
    {"Comp.final.AEP", kShown},
    {"Comp.final.aepx", kShown},
    {"Comp.final.aep\u0301", kShown},

    // Test files, by the length of the whole path.
    {"TestFile1", kTemporary},
    {"TestFile", kTemporary},
    {"TestFile.", kTemporary},
    {"TestFile.txt", kShown},
    {"testFile1", kShown},
    {"TestFil", kShown},
    {"aTestFile", kShown},
    {"TestFile\u0301", kShown, kTemporary},

    // Scratch files with the extension "tmp", and its kin.
    {"setup.tmp$$", kTemporary},
    {"setup.tmp$", kShown},
    {"setup.tmp$$$", kShown},
    {"setup.TMP$$", kShown},
    {"~ai-1.tmp", kTemporary},
    {"~ai-1.tm", kShown},
    {"Word Work File D_1.tmp", kTemporary},
    {"Word Work File D_1", kShown},
    {"Acr123.tmp", kTemporary},
    {"acr123.tmp", kTemporary},
    {"Acr123.pdf", kShown},
    {"x.tmp", kTemporary},
    {"x.TMP", kShown},
    {"x.tmpx", kShown},
    {"tmp", kShown},
    {"x.t\u0301mp", kShown},
    {"x.tmp\u0301", kShown},

    // Word recovery.
    {"~WRD0001", kTemporary},
    {"~WR.x", kTemporary},
    {"~wrd0001", kShown},
    {"~W", kShown},
    {"WRD0001", kShown},
    {"~WR\u0301", kShown, kTemporary},

    // Spreadsheets.
    {"8A7BC920", kTemporary},
    {"C920", kTemporary},
    {"8A7BC920.", kShown},
    {"8A7BC920.xlsx", kShown},
    {"8A7Bc920", kShown},
    {"8A7BC92", kShown},
    {"8A7BC9201", kShown},
    {"8A7B. C920", kShown},

    // Downloads and parts.
    {"movie.download", kTemporary},
    {"movie.mp4.download", kTemporary},
    {"movie.crdownload", kTemporary},
    {"movie.mp4.crdownload", kTemporary},
    {"movie.Download", kShown},
    {"movie.downloads", kShown},
    {"movie.xdownload", kShown},
    {"movie.crdownloa", kShown},
    {"download", kShown},
    {"file.zip.part", kTemporary},
    {"file.zip.xpart", kTemporary},
    {"file..part", kTemporary},
    {"file.part", kShown},
    {"file.zip.Part", kShown},
    {"file.zip.part1", kShown},
    {"file.part.zip", kShown},

    // Safe-save staging, and what lies directly inside.
    {"Report.docx.sb-5a2f1c3e-AbCdEf", kTemporary},
    {"Report..sb-", kTemporary},
    {"Report.sb-1", kShown},
    {"Report.docx.sb", kShown},
    {"Report.docx.SB-1", kShown},
    {"Report.docx.xsb-1", kShown},
    {"Report.docx.sb-\u0301", kShown, kTemporary},
    {"Doc.pages.sb-12ab-XYZ/Report.docx", kTemporary},
    {"Doc.pages.sb-12ab-XYZ/a/Report.docx", kShown},
    {"Doc.sb-12ab-XYZ/Report.docx", kShown},
    {"Doc.pages.sb_12ab-XYZ/Report.docx", kShown},

    // Swap files.
    {"page.swap", kTemporary},
    {"page.Swap", kShown},
    {"page.swp", kShown},
    {"swap", kShown},

    // Drawings.
    {"drawing.dwl", kTemporary},
    {"drawing.dwl2", kTemporary},
    {"drawing.dw", kShown},
    {"drawing.DWL", kShown},
    {"drawing.xdwl", kShown},
    {"drawing.dwl\u0301", kShown, kTemporary},
    {"drawing.bak", kTemporary},
    {"drawing.BAK", kShown},
    {"drawing.bak1", kShown},
    {"atemp42", kTemporary},
    {"atemp42.", kTemporary},
    {"atmp7", kTemporary},
    {"atemp42.txt", kShown},
    {"Atemp42", kShown},
    {"atem", kShown},
    {"xatmp7", kShown},
    {"atmp\u0301", kShown, kTemporary},
};

TEST(TemporaryItemsTest, decidesByPathAndByURL) {
    for (const NameRow& row : kNames) {
        const std::string path = "/Volumes/Corvid/" + std::string(row.name);
        const auto url = URL::fileURL(path);
        ASSERT_TRUE(url);
        EXPECT_EQ(isTemporaryItem(path), row.asPath)
            << path << ": " << temporaryItemReason(path).value_or("");
        EXPECT_EQ(isTemporaryItem(url->absoluteString()), row.asURL)
            << url->absoluteString() << ": "
            << temporaryItemReason(url->absoluteString()).value_or("");
    }
}

// Every entry of the lists within the rules, in another case and with a character fewer.
TEST(TemporaryItemsTest, knowsEveryEntryOfItsListsAndNoNeighbour) {
    const std::vector<std::string> office{"docx", "doc", "xlsx", "xls", "ppt", "pptx"};
    for (const std::string& entry : office) {
        SCOPED_TRACE(entry);
        const std::string shorter = entry.substr(0, entry.size() - 1);
        const bool isEntryToo = std::find(office.begin(), office.end(), shorter) != office.end();
        EXPECT_TRUE(isTemporaryItem("/a/~$b." + entry));
        EXPECT_FALSE(isTemporaryItem("/a/~$b." + inCapitals(entry)));
        EXPECT_EQ(isTemporaryItem("/a/~$b." + shorter), isEntryToo);
        EXPECT_FALSE(isTemporaryItem("/a/~$b." + entry + "\u0301"));
        EXPECT_FALSE(isTemporaryItem("/a/~$b." + entry + "."));
    }
    // These are known by how an extension begins.
    const std::vector<std::string> saves{"psd", "pdf", "ps",  "jpg", "jpeg", "png",
                                         "ers", "prn", "ait", "ai",  "indd", "i"};
    for (const std::string& entry : saves) {
        SCOPED_TRACE(entry);
        const std::string shorter = entry.substr(0, entry.size() - 1);
        const bool begins = std::any_of(saves.begin(), saves.end(), [&](const std::string& other) {
            return shorter.starts_with(other);
        });
        EXPECT_TRUE(isTemporaryItem("/a/b." + entry + "1234567890"));
        EXPECT_FALSE(isTemporaryItem("/a/b." + inCapitals(entry) + "1234567890"));
        EXPECT_EQ(isTemporaryItem("/a/b." + shorter + "1234567890"), begins);
        EXPECT_FALSE(isTemporaryItem("/a/b." + entry + ".1234567890"));
    }
}

struct TextRow {
    std::string_view text;
    bool answer;
};

TEST(TemporaryItemsTest, takesAnyTextForAPath) {
    constexpr TextRow rows[] = {
        {"", kShown},
        {"/", kShown},
        {"//", kShown},
        {"a", kShown},
        {".", kTemporary},
        {"..", kTemporary},
        {"/.Trashes", kTemporary},
        {"/.", kTemporary},
        {"//.a", kTemporary},
        {"a//.b//c", kTemporary},
        {"a/.b/", kTemporary},
        {"Report.tmp/", kTemporary},
        {"Report.tmp///", kTemporary},
        // The lengths of whole paths: 17 characters, and 16.
        {"/12345678/TestFile", kTemporary},
        {"/1234567/TestFile", kTemporary},
        {"/123456/TestFile", kShown},
        {"TestFile", kShown},
        {"TestFile123456789", kTemporary},
        {"TestFile12345678", kShown},
        {"TestFile1234567e\u0301", kShown},
        {"TestFile\r\n1234567", kShown},
        // "C920" ends the path, not only the name.
        {"/a/8A7BC920", kTemporary},
        {"/a/8A7BC920/", kShown},
        {"8. /C920", kTemporary},
        {"a. C920", kShown},
        {"file:///.a", kTemporary},
        {"file:///a/%2Eb", kShown},
        {"\xFF.tmp", kTemporary},
        {"a.\xFFtmp", kShown},
        {"a.tmp\xFF", kShown},
        {"~$\xFF.docx", kTemporary},
        {"/\xC3/.a", kTemporary},
    };
    for (const TextRow& row : rows) {
        EXPECT_EQ(isTemporaryItem(row.text), row.answer)
            << testing::PrintToString(row.text) << ": "
            << temporaryItemReason(row.text).value_or("");
    }
}

TEST(TemporaryItemsTest, namesTheFirstRuleThatDecides) {
    struct Row {
        std::string_view path;
        std::string_view reason;
    };
    constexpr Row rows[] = {
        {"/.a/.b", "the path begins with a hidden item at the root"},
        {".a", "the path begins with a dot"},
        {"/a/.b", "the name begins with a dot"},
        {"/a/.b/c.tmp", "a folder above it begins with a dot"},
        {"~ai.tmp",
         "illustrator scratch file: the name begins with \"~ai\" and its extension is \"tmp\""},
        {"a.tmp", "drawing lock, backup or scratch file, by its extension or name"},
        {"/a.b.sb-1/c", "the folder it lies in is a safe-save staging folder"},
    };
    for (const Row& row : rows) {
        EXPECT_THAT(temporaryItemReason(row.path), Optional(row.reason)) << row.path;
    }
    EXPECT_EQ(temporaryItemReason("/Volumes/Corvid/Report.docx"), std::nullopt);
}

TEST(TemporaryItemsTest, splitsNamesAtEveryDot) {
    EXPECT_EQ(allExtensions("/"), std::nullopt);
    EXPECT_THAT(allExtensions(""), Optional(ElementsAre("")));
    EXPECT_THAT(allExtensions("/a.b/archive"), Optional(ElementsAre("archive")));
    EXPECT_THAT(allExtensions("/a/Report.docx/"), Optional(ElementsAre("Report", "docx")));
    EXPECT_THAT(allExtensions("a.tar.gz"), Optional(ElementsAre("a", "tar", "gz")));
    EXPECT_THAT(allExtensions("x..y"), Optional(ElementsAre("x", "", "y")));
    EXPECT_THAT(allExtensions("name."), Optional(ElementsAre("name", "")));
    EXPECT_THAT(allExtensions("a.\u0301b"), Optional(ElementsAre("a", "\u0301b")));
}

TEST(TemporaryItemsTest, blanksAreSpaceSeparatorsAndTheTab) {
    for (const std::string_view text : {"", " ", "\t", "\u00A0", "\u1680", "\u2000", "\u200A",
                                        "\u202F", "\u205F", "\u3000", " \t\u3000 "}) {
        EXPECT_TRUE(isEmpty(text)) << testing::PrintToString(text);
    }
    for (const std::string_view text : {"a", "\n", "\r", "\v", "\u0085", "\u180E", "\u200B",
                                        "\u2028", "\uFEFF", " \u0301", " a ", "\xA0"}) {
        EXPECT_FALSE(isEmpty(text)) << testing::PrintToString(text);
    }
}

TEST(TemporaryItemsTest, judgesAMoveByBothEnds) {
    struct Row {
        std::string_view source;
        std::string_view destination;
        bool answer;
    };
    constexpr Row rows[] = {
        {"/a/Book.xlsx", "/a/9F2C3B1A", true},
        {"/a/Book.xls", "/a/9F2C3B1A", true},
        {"/a/Book.xlsm", "/a/9F2C. ", true},
        {"/a/Book.XLSX", "/a/9F2C3B1A", false},
        {"/a/Book.docx", "/a/9F2C3B1A", false},
        {"/a/Book.xlsx", "/a/9F2C3B1A.zip", false},
        {"/a/Movie.mp4", "/a/Movie.mp4.xdownload", true},
        {"/a/Movie.mp4", "/a/Movie.mp4.xpart", true},
        {"/a/Movie.mp4", "/a/Movie.xdownload", false},
        {"/a/Movie.mp4", "/a/Other.mp4.xdownload", false},
        {"/a/Movie.mp4", "/a/Movie.mp4.xdownloads", false},
        {"/a/x.txt", "/a/x.tmp", true},
        {"/a/Deck.pptx", "/a/Deck-copy", true},
        {"/a/Deck.ppt", "/a/Deck", true},
        {"/a/Deck.pptx", "/a/Dec", false},
        {"/a/Deck.key", "/a/Deck-copy", false},
        {"/a/Deck.pptx", "/a/Deck\u0301", false},
        {"/a/\u00E9t\u00E9.pptx", "/a/e\u0301te\u0301-2", true},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(isTemporaryOnTheBasisOf(row.source, row.destination), row.answer)
            << row.source << " to " << row.destination;
    }
}

TEST(TemporaryItemsTest, looksAtTheWholeStringForADocumentBeingSaved) {
    EXPECT_TRUE(pathStartingWithDocumentBeingSavedBy("(A Document Being Saved By Pages)/x"));
    EXPECT_FALSE(pathStartingWithDocumentBeingSavedBy("/a/(A Document Being Saved By Pages)"));
    EXPECT_FALSE(pathStartingWithDocumentBeingSavedBy("(A Document Being Saved B"));
}

TEST(TemporaryItemsTest, knowsAdobesExtensions) {
    for (const std::string_view name : {"a.pdf", "a.psd", "a.ps", "a.eps", "a.prn", "a.indd",
                                        "a.indl", "a.indt", "a.indb", "a.indx", "a.ai", "a.ait"}) {
        EXPECT_TRUE(isAdobeFile(name)) << name;
    }
    for (const std::string_view name : {"a.PDF", "a.pd", "a.aix", "pdf", ".pdf", "a.ind", ""}) {
        EXPECT_FALSE(isAdobeFile(name)) << name;
    }
}

} // namespace
} // namespace corvid
