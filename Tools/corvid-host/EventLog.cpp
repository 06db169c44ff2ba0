#include "Tools/corvid-host/EventLog.h"

#include "Core/Base/PrintableText.h"

#include <nlohmann/json.hpp>

#include <string>

namespace corvid {

namespace {

/// One line of JSON, in which a terminal finds nothing to act upon. File names may hold any bytes;
/// those that are not UTF-8 are shown as the replacement character.
std::string jsonLine(const char* name, const nlohmann::ordered_json& fields) {
    nlohmann::ordered_json line{{"event", name}};
    line.update(fields);
    const auto dump = [&line](bool isASCII) {
        return line.dump(-1, ' ', isASCII, nlohmann::ordered_json::error_handler_t::replace);
    };
    std::string text = dump(false);
    if (printableLines(text) == text) {
        return text;
    }
    text = dump(true);
    for (std::size_t at = text.find('\x7f'); at != std::string::npos; at = text.find('\x7f', at)) {
        text.replace(at, 1, "\\u007f"); // The one control character that JSON leaves as it is.
    }
    return text;
}

std::string droppedLine(bool isJson, std::size_t count) {
    if (isJson) {
        return jsonLine("dropped", {{"lines", count}});
    }
    return "(" + std::to_string(count) + " lines are missing here, since nobody read them in time)";
}

} // namespace

EventLog::EventLog(std::FILE* output, bool isJson)
    : isJson_(isJson),
      output_(fileno(output), [isJson](std::size_t count) { return droppedLine(isJson, count); }),
      errors_(fileno(stderr), [isJson](std::size_t count) { return droppedLine(isJson, count); }) {}

void EventLog::say(const char* name, const std::string& words,
                   const nlohmann::ordered_json& fields) {
    output_.add(isJson_ ? jsonLine(name, fields) : printableText(words));
}

void EventLog::sayLines(const char* name, const std::string& text,
                        const nlohmann::ordered_json& fields) {
    output_.add(isJson_ ? jsonLine(name, fields) : printableLines(text));
}

void EventLog::problem(const std::string& text) {
    if (isJson_) {
        say("problem", text, {{"text", text}});
    } else {
        errors_.add("corvid-host: " + printableText(text));
    }
}

} // namespace corvid
