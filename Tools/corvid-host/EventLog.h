#pragma once

#include "Tools/corvid-host/LineWriter.h"

#include <cstdio>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace corvid {

/// What a host says while it runs: a line of words for people, or a line of JSON for scripts.
/// Every line is written out at once, by threads of its own: no member waits for who reads. Lines
/// that nobody reads are dropped beyond LineWriter::kMostBytes, and their number is said: to
/// people in words, to scripts as the event "dropped" with the field "lines". No terminal acts on
/// what is in a line: names and texts from outside are given as they are, and escaped here
/// (printableText()). Any thread.
class EventLog {
public:
    /// `output` is not owned; nobody else writes to it meanwhile.
    EventLog(std::FILE* output, bool isJson);

    /// Says that `name` happened: `words` to people, or `{"event": name, ...fields}` to scripts.
    void say(const char* name, const std::string& words, const nlohmann::ordered_json& fields);

    /// The same for a text of many lines, which people see as such (printableLines()).
    void sayLines(const char* name, const std::string& text, const nlohmann::ordered_json& fields);

    /// Something that went wrong: to people on standard error, to scripts as the event "problem".
    void problem(const std::string& text);

private:
    const bool isJson_;
    LineWriter output_;
    LineWriter errors_;
};

} // namespace corvid
