#include "Commands.h"

#include "Core/Base/PrintableText.h"
#include "Core/Base/VolumeMapping.h"
#include "Platform/Unix/UnixBundle.h"
#include "Support/BadgeVerdict.h"
#include "Support/StringMembers.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

namespace {

struct ExplainOptions {
    std::vector<std::string> paths;
    std::string volume;
    bool json = false;
};

// The item's URL as the controller gets it: a relative path is taken against the working folder,
// and one in the local folder of the volume is on the volume.
std::optional<URL> itemURL(const std::string& path, const std::optional<VolumeMapping>& volume) {
    std::filesystem::path local = path;
    if (local.is_relative()) {
        local = std::filesystem::absolute(local).lexically_normal();
    }
    std::error_code error;
    const bool isFolder = path.ends_with('/') || std::filesystem::is_directory(local, error);
    const std::optional<std::string> onVolume =
        volume ? volume->toVolume(local.string()) : std::nullopt;
    return URL::fileURL(onVolume.value_or(local.string()), isFolder);
}

// One object and the end of the line; `url` is absent when the text is no item's path.
std::string answerLine(std::string_view text, const std::optional<URL>& url, const Bundle& bundle) {
    std::string line;
    JSONObjectWriter object(line);
    addStringMembers(object, text, bundle);
    if (url) {
        const BadgeVerdict verdict = badgeVerdict(*url);
        JSONObjectWriter badge = object.addObject("badge");
        badge.add("url", url->absoluteString());
        badge.add("asked", verdict.isAsked);
        badge.add("rule", verdict.isAsked ? std::nullopt : std::optional(verdict.rule));
        badge.add("decidedOn", verdict.isAsked ? std::nullopt : std::optional(verdict.text));
        badge.finish();
    } else {
        object.addNull("badge");
    }
    object.finish();
    line += '\n';
    return line;
}

void explainInWords(const std::string& path, const URL& url) {
    const BadgeVerdict verdict = badgeVerdict(url);
    std::cout << printableText(path);
    if (verdict.isAsked) {
        std::cout << ": a badge is asked for\n";
        return;
    }
    const bool isOnItem = verdict.text == url.absoluteString();
    std::cout << ": no badge\n"
              << "    " << verdict.rule << "\n"
              << "    in " << (isOnItem ? "the item's URL " : "its parent's URL ") << verdict.text
              << "\n";
}

// What to do about a path that no URL can say.
std::string_view remedyFor(const std::string& path) {
    if (path.empty()) {
        return "it is empty; name an item";
    }
    return "its name is not UTF-8, so it has no URL and is never asked about; rename it";
}

bool explainPaths(const ExplainOptions& options, const Bundle& bundle) {
    std::optional<VolumeMapping> volume;
    if (!options.volume.empty()) {
        volume = VolumeMapping::make(
            std::filesystem::absolute(options.volume).lexically_normal().string());
        if (!volume) {
            std::cerr << "corvid: the volume \"" << printableText(options.volume)
                      << "\" is no folder that can stand for one; name one without a line break, "
                         "with --volume or CVD_VOLUME_PATH\n";
            return false;
        }
    }
    bool isDone = true;
    for (const std::string& path : options.paths) {
        const std::optional<URL> url = path.empty() ? std::nullopt : itemURL(path, volume);
        if (options.json) {
            std::cout << answerLine(path, url, bundle);
        } else if (url) {
            explainInWords(path, *url);
        } else {
            std::cerr << "corvid: \"" << printableText(path)
                      << "\" cannot be explained: " << remedyFor(path) << "\n";
            isDone = false;
        }
    }
    return isDone;
}

// One JSON string a line, one answer a line. Nothing is looked up in the file system.
bool explainLines(const Bundle& bundle) {
    bool isDone = true;
    std::string source;
    for (long number = 1; std::getline(std::cin, source); ++number) {
        const auto parsed = nlohmann::json::parse(source, nullptr, false);
        if (!parsed.is_string()) {
            const std::string problem = "line " + std::to_string(number) +
                                        " is not a JSON string; put each path in double quotes";
            std::string line;
            JSONObjectWriter object(line);
            object.add("error", problem);
            object.finish();
            std::cout << line << '\n';
            std::cerr << "corvid: " << problem << "\n";
            isDone = false;
            continue;
        }
        const auto& text = parsed.get_ref<const std::string&>();
        std::cout << answerLine(text, URL::fileURL(text, text.ends_with('/')), bundle);
    }
    return isDone;
}

} // namespace

void addExplainCommand(const Command& program) {
    auto options = std::make_shared<ExplainOptions>();
    const Command command = program.addCommand(
        "explain", "Say for each PATH whether the host is asked for its badge, or why it is not");
    command.addOption("PATH", options->paths, "Items; they need not exist", {.isRequired = true});
    command.addFlag("--json", options->json,
                    "One JSON object a PATH: what every rule and helper answers for the text as "
                    "given, and the badge. With \"-\" as the only PATH, one JSON string a line "
                    "is read from standard input instead");
    command.addOption("--volume", options->volume,
                      "The local folder that stands for /Volumes/Corvid",
                      {.typeName = "DIR", .environmentVariable = "CVD_VOLUME_PATH"});
    command.onRun([options] {
        const UnixBundle bundle(std::nullopt);
        const bool readsLines = options->json && options->paths == std::vector<std::string>{"-"};
        const bool isDone = readsLines ? explainLines(bundle) : explainPaths(*options, bundle);
        std::cout.flush();
        if (!isDone || !std::cout) {
            throw CommandFailure{};
        }
    });
}

} // namespace corvid
