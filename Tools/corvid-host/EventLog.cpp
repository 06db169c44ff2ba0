#include "Tools/corvid-host/EventLog.h"

#include <nlohmann/json.hpp>

namespace corvid {

void EventLog::say(const char* name, const std::string& words,
                   const nlohmann::ordered_json& fields) {
    if (!isJson_) {
        write(output_, words);
        return;
    }
    nlohmann::ordered_json line{{"event", name}};
    line.update(fields);
    // File names may hold any bytes; those that are not UTF-8 are shown as the replacement
    // character.
    write(output_, line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void EventLog::problem(const std::string& text) {
    if (isJson_) {
        say("problem", text, {{"text", text}});
    } else {
        write(stderr, "corvid-host: " + text);
    }
}

void EventLog::write(std::FILE* output, const std::string& line) {
    const MutexLock lock(mutex_);
    std::fprintf(output, "%s\n", line.c_str());
    std::fflush(output);
}

} // namespace corvid
