#include "Core/Base/PrintableText.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace corvid {
namespace {

using namespace std::string_view_literals;

struct Case {
    std::string_view text;
    std::string_view printable;
};

TEST(PrintableText, EscapesWhatAnEditorOrATerminalWouldActOn) {
    const Case cases[] = {
        {"", ""},
        {"plain ~ text", "plain ~ text"},
        {"a\nb", "a\\nb"},
        {"a\r\tb", "a\\r\\tb"},
        {"a\\nb", "a\\\\nb"},
        {"\x1b[31mred\x07", "\\x1b[31mred\\x07"},
        {"nul \0 in it"sv, "nul \\x00 in it"},
        {"del\x7f", "del\\x7f"},
        {"gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F"},
        {"\xF0\x9F\x90\xA6", "\xF0\x9F\x90\xA6"},
        {"nel \xC2\x85", "nel \\u{85}"},
        {"csi \xC2\x9B"
         "31m",
         "csi \\u{9b}31m"},
        {"no-break\xC2\xA0space", "no-break\xC2\xA0space"},
        {"line\xE2\x80\xA8separator", "line\\u{2028}separator"},
        {"exe\xE2\x80\xAEgpj", "exe\\u{202e}gpj"},
        {"isolate\xE2\x81\xA6", "isolate\\u{2066}"},
        {"tag\xF3\xA0\x81\x81", "tag\\u{e0041}"},
        {"dash \xE2\x80\x94", "dash \xE2\x80\x94"},
        {"bad \xFF byte", "bad \\xff byte"},
        {"cut \xE2\x80", "cut \\xe2\\x80"},
        {"surrogate \xED\xA0\x80", "surrogate \\xed\\xa0\\x80"},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(printableText(one.text), one.printable);
    }
}

TEST(PrintableText, OfLinesKeepsNewlinesTabsAndBackslashes) {
    EXPECT_EQ(printableLines("-a\tb\\n\n+\x1b[2J\r\n\\ No newline \xFF"),
              "-a\tb\\n\n+\\x1b[2J\\r\n\\ No newline \\xff");
    EXPECT_EQ(printableLines(""), "");
    EXPECT_EQ(printableLines("\n"), "\n");
}

TEST(PrintableText, AppendsToWhatIsThere) {
    std::string out = "before ";
    appendPrintableText(out, "a\nb");
    EXPECT_EQ(out, "before a\\nb");
}

} // namespace
} // namespace corvid
