#include "App/Reporting/LogRedactor.h"

#include "Core/Base/SipHash.h"

#include <gtest/gtest.h>
#include <regex>
#include <string>

namespace corvid {
namespace {

constexpr LogRedactor::Key kKey{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

/// Every run of ten hexadecimal digits as "#".
std::string shape(const std::string& line) {
    return std::regex_replace(line, std::regex("\\b[0-9a-f]{10}\\b"), "#");
}

TEST(SipHash, AgreesWithTheAuthorsVectors) {
    std::string text;
    for (char c = 0; c < 15; ++c) {
        text += c;
    }
    EXPECT_EQ(sipHash(kKey, ""), 0x726fdb47dd0e0e31U);
    EXPECT_EQ(sipHash(kKey, text.substr(0, 1)), 0x74f839c593dc67fdU);
    EXPECT_EQ(sipHash(kKey, text.substr(0, 7)), 0xab0200f58b01d137U);
    EXPECT_EQ(sipHash(kKey, text.substr(0, 8)), 0x93f5f5799a932462U);
    EXPECT_EQ(sipHash(kKey, text), 0xa129ca6149be45e5U);
}

TEST(LogRedactor, TakesOutEveryNameBelowTheVolume) {
    const LogRedactor redactor(kKey);
    const struct {
        std::string line;
        std::string shape;
    } cases[] = {
        {"", ""},
        {"nothing to hide\n", "nothing to hide\n"},
        {"for url = /Volumes/Corvid", "for url = /Volumes/Corvid"},
        {"for url = /Volumes/Corvid/", "for url = /Volumes/Corvid/"},
        {"for url = /Volumes/Corvid/a.txt\n", "for url = /Volumes/Corvid/#.txt\n"},
        {"for url =/Volumes/Corvid/My Plan, 2/b ] c.xlsx", "for url =/Volumes/Corvid/#/#.xlsx"},
        {"/Volumes/Corvid/a//b/", "/Volumes/Corvid/#//#/"},
        {"/Volumes/Corvid2/name", "/Volumes/Corvid2/name"},
        {"/Volumes/Corvid2 then /Volumes/Corvid/name", "/Volumes/Corvid2 then /Volumes/Corvid/#"},
        {"/Volumes/Corvid/x /Volumes/Corvid/y", "/Volumes/Corvid/#/#/#/#"},
        {"for url = file:///Volumes/Corvid/a%20b.txt from path cache",
         "for url = file:///Volumes/Corvid/#.txt from path cache"},
        {"[file:///Volumes/Corvid/a,b, file:///Volumes/Corvid/c/] and is operatingOnParent = true",
         "[file:///Volumes/Corvid/#, file:///Volumes/Corvid/#/] and is operatingOnParent = true"},
        {"urls = [file:///Volumes/Corvid/a]!", "urls = [file:///Volumes/Corvid/#]!"},
        {"file:///elsewhere/Volumes/Corvid/a b", "file:///elsewhere/Volumes/Corvid/#"},
        {"/Volumes/Corvid/.profile", "/Volumes/Corvid/#"},
        {"/Volumes/Corvid/archive.tar.gz", "/Volumes/Corvid/#.gz"},
        {"/Volumes/Corvid/name.", "/Volumes/Corvid/#"},
        {"/Volumes/Corvid/Letter to.Bob about the divorce", "/Volumes/Corvid/#"},
        {"/Volumes/Corvid/x.ninechars", "/Volumes/Corvid/#"},
        {"/Volumes/Corvid/x.eight888", "/Volumes/Corvid/#.eight888"},
        {"/Volumes/Corvid/a\\nforged", "/Volumes/Corvid/#"},
        {"file:///Volumes/Corvid/%zz%4", "file:///Volumes/Corvid/#"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(shape(redactor.redacted(one.line)), one.shape) << one.line;
    }
}

TEST(LogRedactor, TakesOutWhatLiesBelowOtherFolders) {
    const LogRedactor redactor(kKey, {"/home/me/My Sync \xC3\xA4/", "/", "", "/srv\n1"});
    const struct {
        std::string line;
        std::string shape;
    } cases[] = {
        {"for url =/home/me/My Sync \xC3\xA4/plan a.txt",
         "for url =/home/me/My Sync \xC3\xA4/#.txt"},
        {"[file:///home/me/My%20Sync%20%C3%A4/plan%20a.txt, file:///Volumes/Corvid/b]",
         "[file:///home/me/My%20Sync%20%C3%A4/#.txt, file:///Volumes/Corvid/#]"},
        {"/home/me/My Sync \xC3\xA4", "/home/me/My Sync \xC3\xA4"},
        {"/home/me/My Sync \xC3\xA4"
         "2/name",
         "/home/me/My Sync \xC3\xA4"
         "2/name"},
        {"/home/me/other", "/home/me/other"},
        {"/srv\\n1/name", "/srv\\n1/#"},
        {"/Volumes/Corvid/a.txt", "/Volumes/Corvid/#.txt"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(shape(redactor.redacted(one.line)), one.shape) << one.line;
    }
    EXPECT_EQ(redactor.redacted("/srv\\n1/name").substr(8),
              redactor.redacted("/Volumes/Corvid/name").substr(16));
}

TEST(LogRedactor, OneNameHasOneHashHoweverItIsWritten) {
    const LogRedactor redactor(kKey);
    const std::string prefix = "/Volumes/Corvid/";
    EXPECT_EQ(redactor.redacted(prefix + "a b\xC3\xA4.txt"),
              redactor.redacted("file://" + prefix + "a%20b%C3%A4.txt").substr(7));
    // The log shows the escape of a newline in a path, and the percent escape of it in a URL.
    EXPECT_EQ(redactor.redacted(prefix + "a\\nb"),
              redactor.redacted("file://" + prefix + "a%0Ab").substr(7));
    EXPECT_NE(redactor.redacted(prefix + "a"), redactor.redacted(prefix + "b"));
    EXPECT_NE(redactor.redacted(prefix + "a"), LogRedactor({}).redacted(prefix + "a"));
    EXPECT_EQ(redactor.redacted(prefix + "x/same").substr(prefix.size() + 11),
              redactor.redacted(prefix + "y/same").substr(prefix.size() + 11));
}

} // namespace
} // namespace corvid
