#include "Platform/Unix/StringTables.h"

#include "Platform/Fake/FakeProcessInfo.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <set>
#include <stdlib.h>

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(StringTableTest, reads) {
    const auto table = parseStringTable("\xEF\xBB\xBF// line\n/* two\nlines */ \"a\" = \"b\";\n"
                                        "bare.key-1=/bare/text;\"self\" ;\n"
                                        "\"q\\\"\\\\\" /* in */ = // between\n \"\\n\\t\\r\\x\";"
                                        "\"u\" = \"\\U00e9\\ud83d\\ude00é\"; \"\" = \"\";");
    ASSERT_TRUE(table);
    const StringTable want{{"a", "b"},           {"bare.key-1", "/bare/text"},    {"self", "self"},
                           {"q\"\\", "\n\t\rx"}, {"u", "\u00e9\U0001F600\u00e9"}, {"", ""}};
    EXPECT_EQ(*table, want);
}

TEST(StringTableTest, theLaterEntryCounts) {
    EXPECT_EQ(parseStringTable("a=1;a=2;"), (StringTable{{"a", "2"}}));
}

TEST(StringTableTest, isEmptyWithoutEntries) {
    EXPECT_EQ(parseStringTable(""), StringTable());
    EXPECT_EQ(parseStringTable(" /**/ // end"), StringTable());
}

TEST(StringTableTest, refusesWhatIsMalformed) {
    for (const std::string_view source :
         {"a", "a=", "a=1", "=1;", "a=1;;", "a 1;", "\"a = 1;", "a = \"1;", "/* a = 1;", "a = 1; /",
          "a = \"\\", "a = \"\\U", "a = \"\\Ud83d\";", "a = \"\\Ud83d\\U0041\";",
          "a = \"\\Ude00\";", "a = \"\xFF\";", "é = 1;"}) {
        EXPECT_EQ(parseStringTable(source), std::nullopt) << source;
    }
}

std::vector<std::string> languagesFor(const std::map<std::string, std::string>& variables) {
    FakeProcessInfo process;
    for (const auto& [name, value] : variables) {
        process.setEnvironment(name, value);
    }
    return preferredLanguages(process);
}

TEST(PreferredLanguagesTest, takesTheFirstLocaleThatIsSet) {
    EXPECT_THAT(languagesFor({}), IsEmpty());
    EXPECT_THAT(languagesFor({{"LANG", "de"}}), ElementsAre("de"));
    EXPECT_THAT(languagesFor({{"LANG", "de"}, {"LC_MESSAGES", "fr"}}), ElementsAre("fr"));
    EXPECT_THAT(languagesFor({{"LANG", "de"}, {"LC_MESSAGES", "fr"}, {"LC_ALL", "it"}}),
                ElementsAre("it"));
    EXPECT_THAT(languagesFor({{"LANG", "de"}, {"LC_ALL", ""}}), ElementsAre("de"));
    EXPECT_THAT(languagesFor({{"LC_CTYPE", "de"}}), IsEmpty());
}

TEST(PreferredLanguagesTest, putsTheListBeforeTheLocale) {
    EXPECT_THAT(languagesFor({{"LANGUAGE", "ja:ko"}, {"LANG", "de"}}),
                ElementsAre("ja", "ko", "de"));
    EXPECT_THAT(languagesFor({{"LANGUAGE", "ja"}}), ElementsAre("ja"));
    EXPECT_THAT(languagesFor({{"LANGUAGE", "ja"}, {"LANG", "C.UTF-8"}}), ElementsAre("ja"));
    EXPECT_THAT(languagesFor({{"LANGUAGE", ":ja::"}, {"LANG", "de"}}), ElementsAre("ja", "de"));
}

TEST(PreferredLanguagesTest, leavesTheListOutInThePlainLocale) {
    EXPECT_THAT(languagesFor({{"LANGUAGE", "ja"}, {"LC_ALL", "C"}}), IsEmpty());
    EXPECT_THAT(languagesFor({{"LANGUAGE", "ja"}, {"LANG", "POSIX"}}), IsEmpty());
}

TEST(PreferredLanguagesTest, triesTheCountryFirst) {
    EXPECT_THAT(languagesFor({{"LANG", "de_AT.UTF-8@euro"}}), ElementsAre("de-AT", "de"));
    EXPECT_THAT(languagesFor({{"LANG", "pt-BR"}}), ElementsAre("pt-BR", "pt"));
    EXPECT_THAT(languagesFor({{"LANG", "zh_CN.UTF-8"}}), ElementsAre("zh-CN", "zh-Hans"));
    EXPECT_THAT(languagesFor({{"LANG", "zh"}}), ElementsAre("zh-Hans"));
    EXPECT_THAT(languagesFor({{"LANG", "zh_TW"}}), ElementsAre("zh-TW", "zh-Hant"));
}

TEST(PreferredLanguagesTest, leadsToNoOtherFolder) {
    EXPECT_THAT(languagesFor({{"LANG", "../../etc"}}), IsEmpty());
    EXPECT_THAT(languagesFor({{"LANG", "de_/../x"}}), IsEmpty());
}

class StringTablesTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = std::filesystem::temp_directory_path() / "corvid-tables-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    void write(const std::string& language, const std::string& source) {
        std::filesystem::create_directories(folder_ / (language + ".lproj"));
        std::ofstream(folder_ / (language + ".lproj") / "Localizable.strings") << source;
    }
    std::string textOf(std::string_view key, std::vector<std::string> languages) {
        return StringTables(folder_.string(), std::move(languages)).localizedString(key);
    }

    std::filesystem::path folder_;
};

TEST_F(StringTablesTest, takesTheFirstLanguageThatThereIs) {
    write("en", "k = English;");
    write("de", "k = Deutsch;");
    write("pt", "k = Portugues;");
    EXPECT_EQ(textOf("k", {"pt-BR", "pt", "de"}), "Portugues");
    EXPECT_EQ(textOf("k", {"sv", "de"}), "Deutsch");
    EXPECT_EQ(textOf("k", {"sv"}), "English");
    EXPECT_EQ(textOf("k", {}), "English");
}

TEST_F(StringTablesTest, givesTheKeyWhenTableOrEntryIsMissing) {
    EXPECT_EQ(textOf("k", {"de"}), "k");
    write("en", "k = English; only = here;");
    write("de", "k = Deutsch;");
    EXPECT_EQ(textOf("only", {"de"}), "only");
    write("fr", "k = ");
    EXPECT_EQ(textOf("k", {"fr"}), "k");
}

TEST(ResourcesTest, everyTableHasATextForEveryKey) {
    const std::filesystem::path resources = CORVID_RESOURCES;
    std::set<std::string> languages;
    for (const auto& entry : std::filesystem::directory_iterator(resources)) {
        if (entry.path().extension() != ".lproj") {
            continue;
        }
        SCOPED_TRACE(entry.path());
        languages.insert(entry.path().stem().string());
        std::ifstream file(entry.path() / "Localizable.strings", std::ios::binary);
        const std::string source{std::istreambuf_iterator<char>(file), {}};
        const auto table = parseStringTable(source);
        ASSERT_TRUE(table);
        std::set<std::string> keys;
        std::set<std::string> texts;
        for (const auto& [key, text] : *table) {
            keys.insert(key);
            texts.insert(text);
            EXPECT_EQ(text.find('/'), std::string::npos);
        }
        EXPECT_THAT(keys,
                    ElementsAre("CVMAOnboardingFinderItem_PersonalFolders",
                                "CVMAOnboardingFinderItem_SharedFolders", "Global_Favorites"));
        EXPECT_EQ(texts.size(), 3U) << "two folders of one name";
    }
    EXPECT_THAT(languages, ElementsAre("de", "en", "es", "fr", "it", "ja", "ko", "pt", "zh-Hans"));
}

} // namespace
} // namespace corvid
