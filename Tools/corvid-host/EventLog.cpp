#include "Tools/corvid-host/EventLog.h"

#include <nlohmann/json.hpp>

#include <string>

namespace corvid {

namespace {

std::string droppedLine(bool isJson, std::size_t count) {
    if (isJson) {
        return nlohmann::ordered_json{{"event", "dropped"}, {"lines", count}}.dump();
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
    if (!isJson_) {
        output_.add(words);
        return;
    }
    nlohmann::ordered_json line{{"event", name}};
    line.update(fields);
    // File names may hold any bytes; those that are not UTF-8 are shown as the replacement
    // character.
    output_.add(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void EventLog::problem(const std::string& text) {
    if (isJson_) {
        say("problem", text, {{"text", text}});
    } else {
        errors_.add("corvid-host: " + text);
    }
}

} // namespace corvid
