#include "Commands.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/PrintableText.h"
#include "Core/Base/VolumeMapping.h"
#include "Extensions/Finder/CVMABadgeID.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/VolumeFile.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace corvid {

namespace {

constexpr std::chrono::milliseconds kTimeout{1000};

struct PushOptions {
    std::string path;
    std::string badge;
    bool json = false;
};

std::string badgeNames() {
    std::string names;
    for (const CVMABadgeID badge : CVMABadgeID::allValues()) {
        names += std::string(badge.rawValue()) + ", ";
    }
    return names + std::string(CVMABadgeID(CVMABadgeID::none).rawValue());
}

// The item as the extension knows it. A path on the volume itself is taken as it is.
URL itemAt(const std::string& path) {
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(path, error).lexically_normal().string();
    const std::string local = absolute.size() > 1 && absolute.ends_with('/')
                                  ? absolute.substr(0, absolute.size() - 1)
                                  : absolute;
    const auto published = VolumeFile::ofExtension(RuntimeFolder::ofThisUser()).read();
    const auto mapping =
        VolumeMapping::make(published ? std::string_view(published->folder) : kVolumeRoot);
    auto onVolume = mapping ? mapping->toVolume(local) : std::nullopt;
    if (!onVolume && (local + "/").starts_with(std::string(kVolumeRoot) + "/")) {
        onVolume = local;
    }
    if (!onVolume) {
        fail(printableText(path) + " is not on the volume, which is " +
             printableText(mapping ? mapping->localFolder() : std::string(kVolumeRoot)) +
             "; name an item below it");
    }
    const auto url = URL::fileURL(*onVolume, std::filesystem::is_directory(local, error));
    if (!url) {
        fail(printableText(path) + " has a name that is not UTF-8 and cannot have a badge");
    }
    return *url;
}

nlohmann::ordered_json pidOf(const LivePort& port) {
    return port.process != 0 ? nlohmann::ordered_json(port.process) : nlohmann::ordered_json();
}

void push(const PushOptions& options) {
    const auto badge = CVMABadgeID::fromRawValue(options.badge);
    if (!badge) {
        fail("\"" + printableText(options.badge) + "\" is not a badge; the badges are " +
             badgeNames());
    }
    const URL item = itemAt(options.path);
    UnixMessagePortService service;
    const std::string prefix =
        std::string(CVMAMessagePortID(CVMAMessagePortID::finderExtension).rawValue()) + "-";
    const auto ports = service.portFolder().livePorts(prefix);
    if (ports.empty()) {
        fail("No extension is running; start corvid-finder-ext, or open the folder in a file "
             "manager");
    }
    const Bytes payload = archivedData(Value::dictionary(
        {{"badgeID", Value::string(std::string(badge->rawValue()))}, {"path", Value::url(item)}}));
    bool allTook = true;
    for (const LivePort& port : ports) {
        const auto remote = service.createRemote(port.name);
        const bool took =
            remote != nullptr &&
            service.sendRequest(*remote, CVMAMessageID(CVMAMessageID::provideBadge).rawValue(),
                                payload, kTimeout, kTimeout, std::nullopt,
                                nullptr) == SendStatus::success;
        allTook = allTook && took;
        if (options.json) {
            const nlohmann::ordered_json object{{"port", port.name},
                                                {"pid", pidOf(port)},
                                                {"badge", badge->rawValue()},
                                                {"url", item.absoluteString()},
                                                {"taken", took}};
            std::puts(object.dump().c_str());
        } else if (!took) {
            const std::string process =
                port.process != 0 ? " of process " + std::to_string(port.process) : "";
            std::fprintf(stderr,
                         "The extension%s did not take the badge within a second; it hangs or has "
                         "ended\n",
                         process.c_str());
        }
    }
    if (!allTook) {
        throw CommandFailure{};
    }
}

} // namespace

void addPushCommand(const Command& program) {
    const Command command =
        program.addCommand("push", "Push a badge for an item to every running extension");
    const auto options = std::make_shared<PushOptions>();
    command.addOption("PATH", options->path, "The item, in the local folder of the volume",
                      {.isRequired = true});
    command.addOption("BADGE", options->badge, "One of " + badgeNames(), {.isRequired = true});
    command.addFlag("--json", options->json, "One JSON object an extension, one a line");
    command.onRun([options] { push(*options); });
}

} // namespace corvid
