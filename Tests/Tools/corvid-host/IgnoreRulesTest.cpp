#include "Tools/corvid-host/Git/IgnoreRules.h"

#include "Tests/Tools/corvid-host/GitFixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace corvid {
namespace {

using Verdict = IgnoreRules::Verdict;

TEST(IgnoreRules, lastRuleThatSpeaksOfAnItemCounts) {
    struct Row {
        const char* rules;
        const char* path;
        bool isFolder;
        Verdict verdict;
    };
    const Row rows[] = {
        {"", "a", false, Verdict::none},
        {"# a\n\n", "# a", false, Verdict::none},
        {"\\#a", "#a", false, Verdict::ignored},
        {"a", "a", false, Verdict::ignored},
        {"a", "x/y/a", false, Verdict::ignored},
        {"a", "ab", false, Verdict::none},
        {"/a", "a", false, Verdict::ignored},
        {"/a", "x/a", false, Verdict::none},
        {"a/", "a", true, Verdict::ignored},
        {"a/", "a", false, Verdict::none},
        {"a/", "x/a", true, Verdict::ignored},
        {"x/a", "x/a", false, Verdict::ignored},
        {"x/a", "y/x/a", false, Verdict::none},
        {"*.o", "x/y.o", false, Verdict::ignored},
        {"*.o", "o", false, Verdict::none},
        {"*.o\n!k.o", "k.o", false, Verdict::kept},
        {"!k.o\n*.o", "k.o", false, Verdict::ignored},
        {"\\!a", "!a", false, Verdict::ignored},
        {"a  ", "a", false, Verdict::ignored},
        {"a\\ ", "a ", false, Verdict::ignored},
        {"a\r\n", "a", false, Verdict::ignored},
        {"\xef\xbb\xbf"
         "a",
         "a", false, Verdict::ignored},
        {"x/*", "x/y", false, Verdict::ignored},
        {"x/*", "x/y/z", false, Verdict::none},
        {"x/**", "x/y/z", false, Verdict::ignored},
        {"x/**", "x", true, Verdict::none},
        {"**/a", "a", false, Verdict::ignored},
        {"**/x/a", "y/z/x/a", false, Verdict::ignored},
        {"x/**/a", "x/a", false, Verdict::ignored},
        {"x/**/a", "x/y/z/a", false, Verdict::ignored},
        {"x/**/a", "xa", false, Verdict::none},
        {"a?c", "abc", false, Verdict::ignored},
        {"/x?a", "x/a", false, Verdict::none},
        {"[a-c]x", "bx", false, Verdict::ignored},
        {"[a-c]x", "dx", false, Verdict::none},
        {"[!a-c]x", "dx", false, Verdict::ignored},
        {"[]]x", "]x", false, Verdict::ignored},
        {"[[:digit:]]x", "7x", false, Verdict::ignored},
        {"[[:digit:]]x", "ax", false, Verdict::none},
        {"[a", "[a", false, Verdict::none},
        {"a\\", "a", false, Verdict::none},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(IgnoreRules::parse(row.rules, false).verdictOn(row.path, row.isFolder),
                  row.verdict)
            << row.rules << " on " << row.path;
    }
    EXPECT_EQ(IgnoreRules::parse("A*.O", true).verdictOn("axx.o", false), Verdict::ignored);
    EXPECT_EQ(IgnoreRules::parse("A*.O", false).verdictOn("axx.o", false), Verdict::none);
}

TEST(IgnoreRules, noPatternTakesLongerThanItsLengthTimesThatOfThePath) {
    std::string pattern;
    for (int i = 0; i < 30; ++i) {
        pattern += "**/a*";
    }
    const std::string path = std::string(4000, 'a') + "/b";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(IgnoreRules::parse(pattern, false).verdictOn(path, false), Verdict::none);
    EXPECT_EQ(IgnoreRules::parse("x" + pattern, false).verdictOn("x/" + path, false),
              Verdict::none);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

class IgnoreRulesWithGit : public GitFixture {};

// Rules at random, on paths at random, judged by git.
TEST_F(IgnoreRulesWithGit, agreesWithGit) {
    std::mt19937 random(3);
    const auto any = [&](const auto& list) { return list[random() % std::size(list)]; };
    const std::string parts[] = {"a",    "b",    "ab",  "*",   "**",  "?",   "/",  "/",
                                 "[ab]", "[!a]", "\\a", "a*b", "**/", "/**", "*a", "[a-"};
    const std::string names[] = {"a", "b", "ab", "ba", "aab"};
    std::vector<std::string> paths;
    for (int i = 0; i < 150; ++i) {
        std::string path = any(names);
        for (unsigned long depth = random() % 4; depth > 0; --depth) {
            path += "/" + any(names);
        }
        paths.push_back(path);
    }
    std::string input;
    for (const std::string& path : paths) {
        input += path + "\n";
    }
    write("../paths", input);
    for (int round = 0; round < 40; ++round) {
        std::string rules;
        for (unsigned long count = 1 + random() % 4; count > 0; --count) {
            rules += random() % 4 == 0 ? "!" : "";
            for (unsigned long length = 1 + random() % 5; length > 0; --length) {
                rules += any(parts);
            }
            rules += random() % 6 == 0 ? "/\n" : "\n";
        }
        write(".gitignore", rules);
        std::istringstream said(git("check-ignore --no-index --stdin -v -n <../paths"));
        const IgnoreRules ours = IgnoreRules::parse(rules, false);
        for (const std::string& path : paths) {
            std::string line;
            std::getline(said, line);
            const bool isIgnored =
                !line.starts_with("::") && line.substr(line.find(':', 11) + 1, 1) != "!";
            bool isOurs = false;
            for (std::size_t end = path.find('/'); !isOurs; end = path.find('/', end + 1)) {
                const bool isFolder = end != std::string::npos;
                isOurs = ours.verdictOn(path.substr(0, end), isFolder) == Verdict::ignored;
                if (!isFolder) {
                    break;
                }
            }
            EXPECT_EQ(isOurs, isIgnored) << path << " by\n" << rules << "git: " << line;
        }
    }
}

} // namespace
} // namespace corvid
