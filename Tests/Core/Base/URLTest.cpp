#include "Core/Base/URL.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

namespace corvid {
namespace {

std::string absolute(const std::optional<URL>& url) {
    return std::string(url ? url->absoluteString() : "(refused)");
}

// Each line is what the platform's own class answered; a key that is missing was not settled.
TEST(URLTest, agreesWithThePlatform) {
    std::ifstream file(CORVID_TEST_DATA "/urls.jsonl");
    ASSERT_TRUE(file) << "cannot read " CORVID_TEST_DATA "/urls.jsonl";
    int lines = 0;
    for (std::string line; std::getline(file, line); ++lines) {
        SCOPED_TRACE(line);
        const auto row = nlohmann::json::parse(line);
        if (row.contains("text")) {
            const auto& want = row["url"];
            const auto url = URL::fromText(row["text"].get<std::string>());
            ASSERT_TRUE(url);
            EXPECT_EQ(url->absoluteString(), want["absoluteString"].get<std::string>());
            EXPECT_EQ(url->isFileURL(), want["isFile"].get<bool>());
            if (want.contains("path")) {
                EXPECT_EQ(url->path(),
                          want["path"].is_null() ? "" : want["path"].get<std::string>());
            }
            continue;
        }
        const auto path = row["path"].get<std::string>();
        for (const bool isDirectory : {false, true}) {
            const auto& want = row[isDirectory ? "directory" : "file"];
            const auto url = URL::fileURL(path, isDirectory);
            ASSERT_TRUE(url);
            EXPECT_EQ(url->absoluteString(), want["absoluteString"].get<std::string>());
            EXPECT_EQ(url->path(), want["path"].get<std::string>());
            EXPECT_TRUE(url->isFileURL());
            EXPECT_EQ(url->hasDirectoryPath(), isDirectory || path == "/");
        }
    }
    EXPECT_EQ(lines, 1003);
}

TEST(URLTest, tellsWhatIsOnAnotherComputer) {
    const std::pair<const char*, bool> rows[] = {
        {"file:///x", false},
        {"file:/x", false},
        {"file://localhost/x", false},
        {"file://LOCALHOST/x", false},
        {"file://other-host/x", true},
        {"file://localhost2/x", true},
        {"file://me@localhost/x", true},
        {"//other/x", true},
        {"x/y", false},
    };
    for (const auto& [text, isOther] : rows) {
        EXPECT_EQ(URL::fromText(text).value().isOfOtherHost(), isOther) << text;
    }
}

TEST(URLTest, refusesPathsThatNoFileURLCanSay) {
    for (const std::string_view path :
         {std::string_view(""), std::string_view("a"), std::string_view("./a"),
          std::string_view("/a\0b", 4), std::string_view("/\xFF"), std::string_view("/\xC3"),
          std::string_view("/\xED\xA0\x80"), std::string_view("/\xC0\xAF"),
          std::string_view("/\xF4\x90\x80\x80")}) {
        EXPECT_EQ(absolute(URL::fileURL(path)), "(refused)") << testing::PrintToString(path);
    }
}

TEST(URLTest, keepsRepeatedSeparatorsButThoseAtTheEnd) {
    EXPECT_EQ(absolute(URL::fileURL("//a//b//")), "file:////a//b");
    EXPECT_EQ(absolute(URL::fileURL("//a//b//", true)), "file:////a//b/");
    EXPECT_EQ(absolute(URL::fileURL("///")), "file:///");
}

TEST(URLTest, refusesTextThatIsNoReference) {
    struct Row {
        std::string_view text;
        bool accepted;
    };
    constexpr Row rows[] = {
        {"", false},
        {"a", true},
        {"a b", false},
        {"a%20b", true},
        {"a%2", false},
        {"a%", false},
        {"a%zz", false},
        {"a%Fz", false},
        {"\xC3\xA9", false},
        {"a\nb", false},
        {"a\\b", false},
        {"a^b", false},
        {"a{b}", false},
        {"a|b", false},
        {"a\"b", false},
        {"a<b>", false},
        {"a`b", false},
        {"a[b", false},
        {"a#b#c", false},
        {"a#b?c", true},
        {"a?b?c", true},
        {"1a:b", false},
        {":b", false},
        {"a1+.-:b", true},
        {"a_b:c", false},
        {"./a_b:c", true},
        {"http://h:80/", true},
        {"http://h:/", true},
        {"http://h:8a/", false},
        {"http://u:p@h/", true},
        {"http://u@h@h/", false},
        {"http://[::1]/", true},
        {"http://[::1]:80/", true},
        {"http://[::1]80/", false},
        {"http://[::1/", false},
        {"http://[]/", false},
        {"http://[%31]/", false},
        {"http://h h/", false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(URL::fromText(row.text).has_value(), row.accepted) << row.text;
    }
}

// RFC 3986, section 5.4.
TEST(URLTest, resolvesAgainstItsBase) {
    const auto base = URL::fromText("http://a/b/c/d;p?q");
    ASSERT_TRUE(base);
    struct Row {
        std::string_view text;
        std::string_view absolute;
    };
    constexpr Row rows[] = {
        {"g:h", "g:h"},
        {"g", "http://a/b/c/g"},
        {"./g", "http://a/b/c/g"},
        {"g/", "http://a/b/c/g/"},
        {"/g", "http://a/g"},
        {"//g", "http://g"},
        {"?y", "http://a/b/c/d;p?y"},
        {"g?y", "http://a/b/c/g?y"},
        {"#s", "http://a/b/c/d;p?q#s"},
        {"g#s", "http://a/b/c/g#s"},
        {";x", "http://a/b/c/;x"},
        {"", "http://a/b/c/d;p?q"},
        {".", "http://a/b/c/"},
        {"..", "http://a/b/"},
        {"../g", "http://a/b/g"},
        {"../..", "http://a/"},
        {"../../g", "http://a/g"},
        {"../../../../g", "http://a/g"},
        {"/./g", "http://a/g"},
        {"/../g", "http://a/g"},
        {"g.", "http://a/b/c/g."},
        {".g", "http://a/b/c/.g"},
        {"..g", "http://a/b/c/..g"},
        {"./g/.", "http://a/b/c/g/"},
        {"g/../h", "http://a/b/c/h"},
        {"g?y/../x", "http://a/b/c/g?y/../x"},
        {"http:g", "http:g"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(absolute(URL::fromText(row.text, *base)), row.absolute) << row.text;
    }
}

TEST(URLTest, keepsTextAndBaseOfARelativeOne) {
    const auto base = URL::fileURL("/Volumes/Corvid/dir", true);
    ASSERT_TRUE(base);
    const auto url = URL::fromText("a/b%20c.txt", *base);
    ASSERT_TRUE(url);
    EXPECT_EQ(url->relativeString(), "a/b%20c.txt");
    EXPECT_EQ(url->absoluteString(), "file:///Volumes/Corvid/dir/a/b%20c.txt");
    EXPECT_EQ(url->path(), "/Volumes/Corvid/dir/a/b c.txt");
    ASSERT_NE(url->base(), nullptr);
    EXPECT_EQ(*url->base(), *base);
    EXPECT_TRUE(url->isFileURL());
    EXPECT_FALSE(url->hasDirectoryPath());

    const auto withScheme = URL::fromText("file:///x", *base);
    ASSERT_TRUE(withScheme);
    EXPECT_EQ(withScheme->base(), nullptr);
    EXPECT_EQ(absolute(URL::fromText("a b", *base)), "(refused)");
}

TEST(URLTest, neverTurnsAPathIntoAnAuthority) {
    const auto base = URL::fromText("file:/a");
    ASSERT_TRUE(base);
    EXPECT_EQ(absolute(URL::fromText("/..//x", *base)), "file:/.//x");
}

TEST(URLTest, comparesByTextAndBase) {
    const auto base = URL::fromText("file:///a/");
    const auto otherBase = URL::fromText("file:///b/");
    const auto plain = URL::fromText("file:///a/x");
    const auto again = URL::fromText("file:///a/x");
    ASSERT_TRUE(base && otherBase && plain && again);
    const auto relative = URL::fromText("x", *base);
    EXPECT_EQ(plain, again);
    EXPECT_NE(plain->identity(), again->identity());
    URL copy = *plain;
    EXPECT_EQ(plain->identity(), copy.identity());
    const URL moved = std::move(copy);
    copy = *relative;
    EXPECT_EQ(plain->identity(), moved.identity());
    EXPECT_EQ(relative->identity(), copy.identity());
    EXPECT_NE(plain, URL::fromText("file:///a/X"));
    EXPECT_NE(plain, relative);
    EXPECT_EQ(relative, URL::fromText("x", *base));
    EXPECT_NE(relative, URL::fromText("x", *otherBase));
}

} // namespace
} // namespace corvid
