#include "Tools/corvid-host/EventLog.h"

#include "Tools/corvid-host/ChangesViewer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

namespace corvid {
namespace {

// OSC and CSI sequences, also with the C1 controls in UTF-8; a bidi control; a byte that is not
// UTF-8; a carriage return.
constexpr const char* kHostile = "\x1b]0;x\a\x1b[2J\xC2\x9B"
                                 "31m\xC2\x9D"
                                 "0;x\xE2\x80\xAE\xFF\r\x7f";
constexpr const char* kEscaped = "\\x1b]0;x\\x07\\x1b[2J\\u{9b}31m\\u{9d}0;x\\u{202e}\\xff\\r\\x7f";

std::string written(bool isJson, const std::function<void(EventLog&)>& say) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const file = std::tmpfile();
    {
        EventLog log(file, isJson);
        say(log);
    }
    std::rewind(file);
    std::string result;
    if (getdelim(&text, &size, '\0', file) >= 0) {
        result = text;
    }
    std::free(text);
    std::fclose(file);
    return result;
}

TEST(EventLog, WordsCannotActOnATerminal) {
    const std::string name = std::string("a\nb") + kHostile;
    EXPECT_EQ(written(false, [&](EventLog& log) { log.say("action", name + "ü", {}); }),
              std::string("a\\nb") + kEscaped + "ü\n");
}

TEST(EventLog, DifferencesKeepTheirLinesAndBackslashes) {
    const auto show = [](EventLog& log) {
        ChangesViewer viewer(log, Session{[](const char*) { return std::string(); }, ""});
        viewer.show(std::string("-\tprintf(\"\\n\")\n+\t") + kHostile + "\n");
    };
    EXPECT_EQ(written(false, show), std::string("-\tprintf(\"\\n\")\n+\t") + kEscaped + "\n\n");
}

TEST(EventLog, JSONHoldsNoControlsAndSaysTheSame) {
    const std::string name = std::string(kHostile) + "ü\\";
    const std::string line =
        written(true, [&](EventLog& log) { log.say("action", "", {{"name", name}}); });
    for (const char c : line) {
        EXPECT_TRUE((c >= ' ' && c <= '~') || c == '\n') << static_cast<int>(c);
    }
    std::string expected = name;
    expected.replace(expected.find('\xFF'), 1, "\uFFFD");
    EXPECT_EQ(nlohmann::json::parse(line)["name"], expected);
    EXPECT_EQ(written(true, [](EventLog& log) { log.say("e", "", {{"name", "ü"}}); }),
              "{\"event\":\"e\",\"name\":\"ü\"}\n")
        << "what is harmless stays readable";
}

} // namespace
} // namespace corvid
