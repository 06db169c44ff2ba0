#include "Tests/Support/GeneratedText.h"

#include <iterator>
#include <string_view>
#include <vector>

namespace corvid {

namespace {

using namespace std::string_view_literals;

// At most 256, one a byte.
constexpr std::string_view kPieces[] = {
    // Separators, and more of them than come by chance.
    "/"sv, "/"sv, "/"sv, "/"sv, "/"sv, "/"sv, "/"sv, "/"sv, "//"sv, "///"sv, "."sv, "."sv, "."sv,
    "."sv, "."sv, "."sv, "."sv, "."sv, ".."sv, "..."sv, "./"sv, "../"sv, "/."sv, "/.git/"sv,
    // What the rules name.
    "~$"sv, "~"sv, "$"sv, "docx"sv, "doc"sv, "xlsx"sv, "xls"sv, "ppt"sv, "pptx"sv, "idlk"sv,
    "(A Document Being Saved By"sv, "(A%20Document%20Being%20Saved%20By"sv, "~.sketch"sv, "~ai"sv,
    "tmp"sv, "Adobe Photoshop "sv, "Adobe%20Photoshop%20"sv, "AEtemp-"sv, "aep"sv, "TestFile"sv,
    "tmp$$"sv, "Word Work File"sv, "~WR"sv, "C920"sv, "Acr"sv, "download"sv, "crdownload"sv,
    "part"sv, "sb-"sv, ".sb-"sv, "swap"sv, "dwl"sv, "dwl2"sv, "bak"sv, "atemp"sv, "atmp"sv, "pdf"sv,
    "psd"sv, "ps"sv, "jpg"sv, "jpeg"sv, "png"sv, "ers"sv, "prn"sv, "ai"sv, "ait"sv, "i"sv, "indd"sv,
    "1234567890"sv, "-123456789"sv, "+123456789"sv, "123456789"sv, "0"sv, ".localized"sv,
    ".Localized"sv, "localized"sv, "tiff"sv, "tif"sv, "JPG"sv, "zip"sv, "gz"sv, "z"sv, "7z"sv,
    "pa"sv, "doct"sv, "md"sv, ".BAH"sv, ".AU."sv, "Items("sv, ")"sv, "fo"sv, "foh"sv, "l"sv, "n"sv,
    "Personal Folders"sv, "/Favorites"sv, "@"sv, "a.b"sv, "com"sv,
    // Their near misses.
    "DOCX"sv, "Tmp"sv, "tm"sv, "testFile"sv, "~wr"sv, "acr"sv, "C92"sv, "c920"sv, "dw"sv, "sb"sv,
    "Download"sv, "par"sv, "aepx"sv, "(A Document Being Saved B"sv, "~$D"sv,
    // Names, blanks and escapes.
    "Report"sv, "Folder"sv, "x"sv, "a"sv, "%20"sv, "%2E"sv, "%C3%A9"sv, "%E8%B3%87"sv, "%"sv, " "sv,
    "\t"sv, "\n"sv, "\r"sv, "\r\n"sv, "\u00A0"sv, "\u3000"sv, "\u2003"sv, "\u200B"sv, "\u2028"sv,
    "\0"sv, "\x1F"sv, "\x7F"sv, "#"sv, "#ff8000"sv, "FF"sv, "0X"sv, "+"sv, "="sv, "YWJj"sv,
    "YQ=="sv, ":"sv, "*"sv, "\\"sv, "\""sv, "?"sv, "-"sv, "_"sv,
    // One character, several spellings.
    "\u00E9"sv, "e\u0301"sv, "\u0301"sv, "\u0300"sv, "\u0323"sv, "q\u0307\u0323"sv,
    "q\u0323\u0307"sv, "\u212A"sv, "K"sv, "\u212B"sv, "\u00C5"sv, "A\u030A"sv, "\u037E"sv, ";"sv,
    "\u1FEF"sv, "`"sv, "\u226E"sv, "<\u0338"sv, "\uFB01"sv, "\uFB00"sv, "\u00DF"sv, "\u0130"sv,
    "i\u0307"sv, "\u0131"sv, "\u0344"sv, "\u0308\u0301"sv, "\u0340"sv, "\u1F82"sv, "\u0149"sv,
    // Characters of several scalars.
    "\U0001F469\u200D\U0001F469\u200D\U0001F467"sv, "\U0001F44D\U0001F3FD"sv, "\U0001F3FD"sv,
    "\u200D"sv, "\uFE0F"sv, "\u2764\uFE0F"sv, "\U0001F1E9"sv, "\U0001F1E9\U0001F1EA"sv, "\u1100"sv,
    "\u1161"sv, "\u11A8"sv, "\uAC00"sv, "\uAC01"sv, "\u0E33"sv, "\u0600"sv, "\u0903"sv, "\u0915"sv,
    "\u05D0"sv, "\u8CC7\u6599"sv, "\u0661\u0662\u0663"sv, "\uFFFD"sv, "\U0010FFFF"sv,
    // What is not UTF-8.
    "\xFF"sv, "\x80"sv, "\xC3"sv, "\xE2\x82"sv, "\xF0\x9F\x91"sv, "\xC0\xAF"sv, "\xED\xA0\x80"sv,
    "\xF4\x90\x80\x80"sv, "\xE0\x80"sv};
static_assert(std::size(kPieces) <= 256);

} // namespace

std::string textFromChoices(std::span<const std::uint8_t> choices) {
    std::string text;
    for (const std::uint8_t choice : choices) {
        text += kPieces[choice % std::size(kPieces)];
    }
    return text;
}

std::string TextGenerator::next() {
    const std::uint64_t bits = random_();
    const std::size_t length = bits % 10000 == 0 ? 3000 : 2 + (bits >> 16U) % 46;
    std::vector<std::uint8_t> choices(length);
    for (std::uint8_t& choice : choices) {
        choice = static_cast<std::uint8_t>(random_());
    }
    const std::string text = textFromChoices(choices);
    return (bits >> 60U) % 2 == 0 ? "file:///Volumes/Corvid/" + text : text;
}

} // namespace corvid
