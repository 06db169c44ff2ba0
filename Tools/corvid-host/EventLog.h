#pragma once

#include "Core/Base/Mutex.h"

#include <cstdio>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace corvid {

/// What a host says while it runs: a line of words for people, or a line of JSON for scripts.
/// Every line is written out at once, and no terminal acts on what is in it: names and texts from
/// outside are given as they are, and escaped here (printableText()). Any thread.
class EventLog {
public:
    /// `output` is not owned.
    EventLog(std::FILE* output, bool isJson) : output_(output), isJson_(isJson) {}

    /// Says that `name` happened: `words` to people, or `{"event": name, ...fields}` to scripts.
    void say(const char* name, const std::string& words, const nlohmann::ordered_json& fields);

    /// The same for a text of many lines, which people see as such (printableLines()).
    void sayLines(const char* name, const std::string& text, const nlohmann::ordered_json& fields);

    /// Something that went wrong: to people on standard error, to scripts as the event "problem".
    void problem(const std::string& text);

private:
    void write(std::FILE* output, const std::string& line);

    std::FILE* const output_;
    const bool isJson_;
    Mutex mutex_;
};

} // namespace corvid
