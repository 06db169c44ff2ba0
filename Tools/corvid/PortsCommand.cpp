#include "Commands.h"

#include "Core/Base/PrintableText.h"
#include "Platform/Unix/UnixMessagePortService.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace corvid {

namespace {

constexpr std::chrono::milliseconds kPatience{1000};

// No message has this identifier: a peer that is well answers it, without data.
constexpr std::int32_t kNoMessage = 0;

struct Line {
    LivePort port;
    std::string program;
    std::chrono::seconds age{0};
    bool answers = false;
};

std::string programOf(pid_t process) {
    if (process == 0) {
        return {};
    }
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string program;
    std::getline(file, program);
    return program;
}

bool doesAnswer(MessagePortService& service, const std::string& name) {
    const auto remote = service.createRemote(name);
    return remote != nullptr &&
           service.sendRequest(*remote, kNoMessage, {}, kPatience, kPatience, name + ".replymode",
                               nullptr) == SendStatus::success;
}

std::vector<Line> look() {
    UnixMessagePortService service;
    const auto ports = service.portFolder().livePorts();
    // All at once: one that hangs holds up the answer for its own second only.
    std::vector<std::future<bool>> answers;
    answers.reserve(ports.size());
    for (const LivePort& port : ports) {
        answers.push_back(
            std::async(std::launch::async, [&] { return doesAnswer(service, port.name); }));
    }
    const auto now = std::chrono::system_clock::now();
    std::vector<Line> lines;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - ports[i].since);
        lines.push_back({ports[i], programOf(ports[i].process),
                         std::max(age, std::chrono::seconds(0)), answers[i].get()});
    }
    return lines;
}

std::string ageText(std::chrono::seconds age) {
    const auto seconds = age.count();
    if (seconds < 60) {
        return std::to_string(seconds) + " s";
    }
    if (seconds < 3600) {
        return std::to_string(seconds / 60) + " min";
    }
    return seconds < 86400 ? std::to_string(seconds / 3600) + " h"
                           : std::to_string(seconds / 86400) + " d";
}

// What is not known of a process whose queue is full.
template <class T>
nlohmann::ordered_json orNull(const T& value) {
    return value != T() ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
}

void printJson(const std::vector<Line>& lines) {
    for (const Line& line : lines) {
        const nlohmann::ordered_json object{{"name", line.port.name},
                                            {"pid", orNull(line.port.process)},
                                            {"program", orNull(line.program)},
                                            {"age_s", line.age.count()},
                                            {"answers", line.answers}};
        std::puts(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    }
}

void printTable(const std::vector<Line>& lines) {
    if (lines.empty()) {
        std::printf("No process serves a port in %s.\n",
                    printableText(RuntimeFolder::ofThisUser().pathOf("ports")).c_str());
        return;
    }
    std::size_t width = 4;
    for (const Line& line : lines) {
        width = std::max(width, printableText(line.port.name).size());
    }
    const int nameWidth = static_cast<int>(width);
    std::printf("%-*s  %7s  %-15s  %6s  %s\n", nameWidth, "NAME", "PROCESS", "PROGRAM", "AGE",
                "ANSWERS");
    for (const Line& line : lines) {
        const bool isKnown = line.port.process != 0;
        std::printf("%-*s  %7s  %-15s  %6s  %s\n", nameWidth, printableText(line.port.name).c_str(),
                    isKnown ? std::to_string(line.port.process).c_str() : "?",
                    isKnown ? printableText(line.program).c_str() : "?", ageText(line.age).c_str(),
                    line.answers ? "yes" : "no");
    }
}

} // namespace

void addPortsCommand(const Command& program) {
    const Command command = program.addCommand(
        "ports", "List the message ports that live processes of this user serve");
    const auto json = std::make_shared<bool>(false);
    command.addFlag("--json", *json, "One JSON object a port, one a line");
    command.onRun([json] {
        const auto lines = look();
        if (*json) {
            printJson(lines);
        } else {
            printTable(lines);
        }
    });
}

} // namespace corvid
