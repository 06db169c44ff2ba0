#include "Tools/corvid-host/Rules/Rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace corvid {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

Rules rules(std::string_view text) {
    auto parsed = Rules::parse(text);
    if (const auto* error = std::get_if<RulesError>(&parsed)) {
        ADD_FAILURE() << error->line << ":" << error->column << ": " << error->text;
        return {};
    }
    return std::get<Rules>(parsed);
}

TEST(PathPattern, matchesNamesAndPaths) {
    struct Row {
        const char* pattern;
        const char* path;
        bool matches;
    };
    const Row rows[] = {
        {"*.txt", "a.txt", true},
        {"*.txt", "deep/down/a.txt", true},
        {"*.txt", "a.txt.gz", false},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"a?c", "a/c", false},
        {"dir/*", "dir/a", true},
        {"dir/*", "dir/a/b", false},
        {"dir/*", "other/dir/a", false},
        {"dir/**", "dir/a/b", true},
        {"dir/**", "dir", false},
        {"**/x", "a/b/x", true},
        {"**/x", "x", false},
        {"**", "", true},
        {"**", "a/b", true},
        {"*", "", true},
        {"a*b*c", "a-b-b-c", true},
        {"a*b*c", "a-c-b", false},
        {"A.txt", "a.txt", false},
        {"[a]", "a", false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(PathPattern(row.pattern).matches(row.path), row.matches)
            << row.pattern << " on " << row.path;
    }
}

// What a pattern means, said in the plainest way: every star tries every length.
bool matchesByTrying(std::string_view pattern, std::string_view text) {
    if (pattern.empty()) {
        return text.empty();
    }
    if (pattern.front() == '*') {
        const bool crossesNames = pattern.starts_with("**");
        const std::string_view rest = pattern.substr(crossesNames ? 2 : 1);
        for (std::size_t taken = 0;; ++taken) {
            if (matchesByTrying(rest, text.substr(taken))) {
                return true;
            }
            if (taken == text.size() || (!crossesNames && text[taken] == '/')) {
                return false;
            }
        }
    }
    return !text.empty() &&
           (pattern.front() == '?' ? text.front() != '/' : pattern.front() == text.front()) &&
           matchesByTrying(pattern.substr(1), text.substr(1));
}

TEST(PathPattern, saysWhatTryingSays) {
    std::mt19937 random(20);
    const auto textOf = [&random](std::string_view characters, std::size_t longest) {
        std::string text(random() % (longest + 1), ' ');
        std::ranges::generate(text, [&] { return characters[random() % characters.size()]; });
        return text;
    };
    std::size_t matchCount = 0;
    for (int i = 0; i < 20'000; ++i) {
        // With a "/", so that the whole path counts.
        const std::string pattern = textOf("ab/?***", 8) + "/" + textOf("a/?**", 3);
        const std::string path = textOf("ab/", 6) + "/" + textOf("a/", 3);
        const bool matches = PathPattern(pattern).matches(path);
        matchCount += matches ? 1 : 0;
        ASSERT_EQ(matches, matchesByTrying(pattern, path)) << pattern << " on " << path;
    }
    EXPECT_GT(matchCount, 1'000U);
}

TEST(PathPattern, takesTimeByPatternTimesPath) {
    std::string stars;
    for (int i = 0; i < 8; ++i) {
        stars += "**a";
    }
    const std::string name(4'000, 'a');
    const std::pair<std::string, std::string> kinds[] = {
        {stars + "b", name},
        {stars + "/b", name},
        {"*a*a*a*a*a*a*a*a/b", name},
        {"**/*a**/*a**/*a**/*a**/b", "a/" + name + "/" + name},
        {std::string(600, '*') + "b", name},
        {"**" + name.substr(0, 200) + "b", name},
        {"?" + stars + std::string(50, '?') + "/", name},
    };
    for (const auto& [pattern, path] : kinds) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(PathPattern(pattern).matches(path)) << pattern;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << pattern;
    }
}

TEST(Rules, firstBadgeThatMatchesWins) {
    const Rules read = rules("badge *.txt synced   # the rest of the line is a remark\n"
                             "\n"
                             "  badge \"my file\" error\n"
                             "badge dir/** inProgress\r\n"
                             "badge * cloud");
    EXPECT_EQ(read.badge("dir/a.txt"), "synced");
    EXPECT_EQ(read.badge("my file"), "error");
    EXPECT_EQ(read.badge("dir/x"), "inProgress");
    EXPECT_EQ(read.badge("x"), "cloud");
    EXPECT_EQ(rules("").badge("x"), "none");
}

TEST(Rules, menuIsWhatFitsTheWholeSelection) {
    const Rules read = rules("menu *.txt \"Open\" open\n"
                             "menu ** -\n"
                             "menu ** \"Share\" > \"By \\\"Mail\\\"\" mail\n"
                             "menu ** \"Share\" > \"By Link\" link disabled\n"
                             "menu ** \"Archived\" disabled\n");
    auto menu = read.menu({"a.txt", "b.txt"});
    ASSERT_THAT(menu, SizeIs(4));
    EXPECT_EQ(menu[0].title, "Open");
    EXPECT_EQ(menu[0].action, "open");
    EXPECT_TRUE(menu[1].isSeparator);
    EXPECT_EQ(menu[2].title, "Share");
    ASSERT_THAT(menu[2].submenu, SizeIs(2));
    EXPECT_EQ(menu[2].submenu[0].title, "By \"Mail\"");
    EXPECT_FALSE(menu[2].submenu[1].isEnabled);
    EXPECT_EQ(menu[3].action, "");
    EXPECT_FALSE(menu[3].isEnabled);
    EXPECT_THAT(read.menu({"a.txt", "b.md"}), SizeIs(3));
}

TEST(Rules, clickGivesABadge) {
    const Rules read = rules("on share finishedTransfer");
    EXPECT_EQ(read.badgeAfter("share"), "finishedTransfer");
    EXPECT_EQ(read.badgeAfter("Share"), std::nullopt);
}

TEST(Rules, faultsByMessageAndPath) {
    const Rules read = rules("fault badge slow/** delay 1500ms\n"
                             "fault menu ** hang\n"
                             "fault any *.bin drip 2s\n"
                             "fault badge crash exit-after 20\n");
    EXPECT_EQ(*read.fault(FaultyMessage::badge, "slow/x"),
              (Fault{Fault::Kind::delay, std::chrono::milliseconds(1500)}));
    EXPECT_EQ(read.fault(FaultyMessage::menu, "slow/x")->kind, Fault::Kind::hang);
    EXPECT_EQ(*read.fault(FaultyMessage::badge, "a/x.bin"),
              (Fault{Fault::Kind::drip, std::chrono::milliseconds(2000)}));
    EXPECT_EQ(read.fault(FaultyMessage::badge, "crash")->count, 20U);
    EXPECT_EQ(read.fault(FaultyMessage::badge, "x"), nullptr);
}

TEST(Rules, mistakesAreSaidWithTheirPlaceAndRemedy) {
    struct Row {
        const char* text;
        std::size_t line;
        std::size_t column;
        const char* part;
    };
    const Row rows[] = {
        {"badge * Synced", 1, 9, "\"Synced\" is no badge; use one of cloud"},
        {"badge * synced\nbadges * synced", 2, 1, "\"badges\" is no rule"},
        {"badge", 1, 6, "ends before a pattern"},
        {"badge *", 1, 8, "ends before a badge"},
        {"badge /a synced", 1, 7, "leave the \"/\" at the start out"},
        {"badge * synced now", 1, 16, "one word too many"},
        {"menu * \"Open", 1, 8, "close it with a double quote"},
        {"menu * \"\" open", 1, 8, "the title is empty"},
        {"menu * Open", 1, 12, "the name of an action"},
        {"menu * A > B > C x", 1, 14, "submenu within a submenu"},
        {"on open", 1, 8, "ends before a badge"},
        {"fault click * hang", 1, 7, "\"click\" is no message"},
        {"fault badge * explode", 1, 15, "use delay TIME"},
        {"fault badge * delay 5", 1, 21, "write it as 500ms or 2s"},
        {"fault badge * delay 99999999999999999999s", 1, 21, "is no time"},
        {"fault badge * delay 3601s", 1, 21, "up to an hour"},
        {"fault badge * exit-after soon", 1, 26, "\"soon\" is no number"},
    };
    for (const Row& row : rows) {
        const auto parsed = Rules::parse(row.text);
        const auto* error = std::get_if<RulesError>(&parsed);
        ASSERT_NE(error, nullptr) << row.text;
        EXPECT_EQ(error->line, row.line) << row.text;
        EXPECT_EQ(error->column, row.column) << row.text;
        EXPECT_THAT(error->text, HasSubstr(row.part)) << row.text;
    }
}

} // namespace
} // namespace corvid
