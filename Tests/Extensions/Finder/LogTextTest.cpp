#include "Extensions/Finder/LogText.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

using Texts = std::vector<std::string>;

TEST(LogText, TextsStandInQuotesBetweenBrackets) {
    EXPECT_EQ(logText(Texts{}), "[]");
    EXPECT_EQ(logText(Texts{"Share"}), R"(["Share"])");
    EXPECT_EQ(logText(Texts{"a", "", "b"}), R"(["a", "", "b"])");
}

TEST(LogText, SixCharactersAreEscapedAndNoOther) {
    EXPECT_EQ(logText(Texts{"\""}), R"(["\""])");
    EXPECT_EQ(logText(Texts{"\\"}), R"(["\\"])");
    EXPECT_EQ(logText(Texts{"\n\r\t"}), R"(["\n\r\t"])");
    EXPECT_EQ(logText(Texts{std::string("a\0b", 3)}), R"(["a\0b"])");
    EXPECT_EQ(logText(Texts{"\x01 'é' /, ]"}), "[\"\x01 'é' /, ]\"]");
}

TEST(LogText, URLsAreTheirAbsoluteText) {
    EXPECT_EQ(logText(std::vector<URL>{}), "[]");
    EXPECT_EQ(logText(std::vector<URL>{*URL::fileURL("/Volumes/Corvid/a b"),
                                       *URL::fileURL("/Volumes/Corvid/é", true)}),
              "[file:///Volumes/Corvid/a%20b, file:///Volumes/Corvid/%C3%A9/]");
}

} // namespace
} // namespace corvid
