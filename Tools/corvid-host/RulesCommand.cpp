#include "Core/Base/FileContents.h"
#include "Tools/corvid-host/Commands.h"
#include "Tools/corvid-host/EventLog.h"
#include "Tools/corvid-host/Rules/Rules.h"
#include "Tools/corvid-host/Rules/RulesHost.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>

namespace corvid {

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openFile(const std::string& path, const char* mode) {
    File file(std::fopen(path.c_str(), mode));
    if (file == nullptr) {
        throw std::runtime_error(fmt::format("{} cannot be opened: {}; see that it exists and that "
                                             "you have the right to it",
                                             path, std::strerror(errno)));
    }
    return file;
}

Rules readRules(const std::string& path) {
    const auto text = readFile(path);
    if (!text) {
        throw std::runtime_error(
            fmt::format("{} cannot be read: {}; name a file of rules", path, std::strerror(errno)));
    }
    auto parsed = Rules::parse(*text);
    if (const auto* error = std::get_if<RulesError>(&parsed)) {
        throw std::runtime_error(
            fmt::format("{}:{}:{}: {}", path, error->line, error->column, error->text));
    }
    return std::get<Rules>(std::move(parsed));
}

} // namespace

void addRulesCommand(const Command& program) {
    struct Arguments {
        std::string rules;
        std::string folder = ".";
        std::string record;
        bool isJson = false;
    };
    auto arguments = std::make_shared<Arguments>();
    const Command command = program.addCommand(
        "rules", "Answer by a file of rules: badges, menus, and faults on demand");
    command.addOption("FILE", arguments->rules, "The rules, one on each line",
                      {.isRequired = true});
    command.addOption("DIR", arguments->folder, "The folder to serve; the current one if absent");
    command.addOption("--record", arguments->record,
                      "Add a line of JSON to this file for every message that arrives");
    command.addFlag("--json", arguments->isJson, "Say what happens as one JSON object a line");
    command.setFooter(
        "A line of the file is one of these; the first that matches an item counts:\n"
        "  badge PATTERN BADGE\n"
        "  menu PATTERN [\"SUBMENU\" >] \"TITLE\" ACTION [checked] [disabled]\n"
        "  menu PATTERN \"TITLE\" disabled\n"
        "  menu PATTERN -\n"
        "  on ACTION BADGE\n"
        "  fault badge|menu|any PATTERN delay TIME | hang | no-reply | garbage |\n"
        "        oversize | drip TIME | exit-after NUMBER\n"
        "In patterns, * is any part of a name and ** of a path; TIME is 500ms or 2s.");
    command.onRun([arguments] {
        EventLog log(stdout, arguments->isJson);
        try {
            RulesHost::Options options{arguments->folder, readRules(arguments->rules), nullptr};
            const File record =
                arguments->record.empty() ? nullptr : openFile(arguments->record, "ae");
            options.record = record.get();
            blockStopSignals();
            const RulesHost host(std::move(options), log);
            waitForStop();
        } catch (const std::exception& error) {
            log.problem(error.what());
            throw CommandFailure{};
        }
    });
}

} // namespace corvid
