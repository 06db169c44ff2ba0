#include "Core/Base/UTF8.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace corvid {
namespace {

struct Row {
    std::string_view bytes;
    std::vector<char32_t> scalars;
    bool valid;
};

// The bad ones are those of Unicode, section 3.9, tables 3-8 to 3-11.
const Row kRows[] = {
    {"", {}, true},
    {"a", {'a'}, true},
    {"\x7F", {0x7F}, true},
    {"\xC2\x80", {0x80}, true},
    {"\xDF\xBF", {0x7FF}, true},
    {"\xE0\xA0\x80", {0x800}, true},
    {"\xED\x9F\xBF", {0xD7FF}, true},
    {"\xEE\x80\x80", {0xE000}, true},
    {"\xF0\x90\x80\x80", {0x10000}, true},
    {"\xF4\x8F\xBF\xBF", {0x10FFFF}, true},
    {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82"
     "A",
     {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 'A'},
     false},
    {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF"
     "A",
     {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 'A'},
     false},
    {"\xF4\x91\x92\x93\xFF"
     "A\x80\xBF"
     "B",
     {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 'A', 0xFFFD, 0xFFFD, 'B'},
     false},
    {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF"
     "A",
     {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 'A'},
     false},
    {"\xC3", {0xFFFD}, false},
    {"\xF5\x80", {0xFFFD, 0xFFFD}, false},
};

TEST(UTF8Test, decodesScalarByScalar) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes));
        std::vector<char32_t> scalars;
        for (std::string_view rest = row.bytes; !rest.empty();) {
            const DecodedScalar decoded = decodeUTF8(rest);
            scalars.push_back(decoded.scalar);
            rest.remove_prefix(decoded.length);
        }
        EXPECT_EQ(scalars, row.scalars);
        EXPECT_EQ(isValidUTF8(row.bytes), row.valid);
        if (row.valid) {
            std::string again;
            for (const char32_t scalar : scalars) {
                appendUTF8(again, scalar);
            }
            EXPECT_EQ(again, row.bytes);
        }
    }
}

TEST(UTF8Test, writesTheReplacementCharacterForWhatIsNoScalar) {
    for (const char32_t scalar : {0xD800U, 0xDFFFU, 0x110000U}) {
        std::string text = "a";
        appendUTF8(text, scalar);
        EXPECT_EQ(text, "a\xEF\xBF\xBD");
    }
}

TEST(UTF8Test, tellsTheReplacementCharacterFromABadSequence) {
    EXPECT_TRUE(decodeUTF8("\xEF\xBF\xBD").valid);
    EXPECT_FALSE(decodeUTF8("\xFF").valid);
}

TEST(UTF8Test, seesAByteBeyondASCIIWhereverItStands) {
    for (std::size_t size = 0; size <= 40; ++size) {
        std::string text(size, 'a');
        EXPECT_TRUE(isASCII(text)) << size;
        for (std::size_t at = 0; at < size; ++at) {
            text[at] = '\x80';
            EXPECT_FALSE(isASCII(text)) << at << " of " << size;
            text[at] = '\x7F';
            EXPECT_TRUE(isASCII(text)) << at << " of " << size;
        }
    }
}

} // namespace
} // namespace corvid
