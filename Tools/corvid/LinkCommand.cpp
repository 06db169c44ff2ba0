#include "LinkCommand.h"

#include "Core/Base/PrintableText.h"
#include "Core/Base/UTF8.h"
#include "Tools/Support/VolumePath.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace corvid {

using namespace link;

std::chrono::milliseconds LinkOptions::timeout() const {
    return std::chrono::milliseconds(std::llround(timeoutInSeconds * 1000));
}

void addLinkOptions(const Command& command, LinkOptions& options) {
    command.addFlag("--no-start", options.mayNotStart,
                    "Fail when the extension is not running, instead of starting it");
    command.addFlag("--json", options.isJSON, "Print JSON");
    command.addOption("--timeout", options.timeoutInSeconds,
                      "How many seconds to wait for an answer",
                      {.range = ValueRange{0, 3600}, .showsDefault = true});
}

std::unique_ptr<LinkSession> openSession(const LinkOptions& options, const Deadline& deadline) {
    LinkSession::Options sessionOptions;
    sessionOptions.mayStart = !options.mayNotStart;
    auto session = std::make_unique<LinkSession>(sessionOptions);
    try {
        session->open(deadline);
    } catch (const LinkError& error) {
        fail(error.what());
    }
    return session;
}

std::string hostAdvice(const LinkSession& session) {
    switch (session.hostState()) {
    case HostState::present:
        return {};
    case HostState::absent:
        return "No host application is running, so every badge is the cloud. Start one, for "
               "example with: corvid-host git " +
               printableText(session.volume());
    case HostState::notAnswering:
        return "The host application does not answer. Its badges come by themselves once it does; "
               "else restart it.";
    }
    return {};
}

std::string_view hostStateName(HostState state) {
    switch (state) {
    case HostState::absent:
        return "absent";
    case HostState::present:
        return "present";
    case HostState::notAnswering:
        return "notAnswering";
    }
    return "";
}

SelectedItem selectedItem(const std::string& path, const LinkSession& session) {
    const auto onVolume = pathOnVolume(path, session.volume());
    if (!onVolume) {
        fail(printableText(path) + " is not on the volume, which is " +
             printableText(session.volume()) + ".");
    }
    struct stat info{};
    if (::lstat(onVolume->c_str(), &info) != 0) {
        fail(printableText(path) + ": " + std::strerror(errno) + ".");
    }
    return {*onVolume, S_ISDIR(info.st_mode)};
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

void addName(nlohmann::json& object, const std::string& name) {
    object["name"] = name;
    if (!isValidUTF8(name)) {
        std::string digits;
        for (const char c : name) {
            constexpr std::string_view kDigits = "0123456789abcdef";
            digits += kDigits[static_cast<unsigned char>(c) >> 4U];
            digits += kDigits[static_cast<unsigned char>(c) & 0xFU];
        }
        object["nameBytes"] = digits;
    }
}

void printJSON(const nlohmann::json& value, int indentation) {
    const std::string text =
        value.dump(indentation, ' ', false, nlohmann::json::error_handler_t::replace);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

} // namespace corvid
