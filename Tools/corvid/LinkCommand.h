#pragma once

#include "Tools/Support/CommandLine.h"
#include "Tools/Support/LinkSession.h"

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

// What the commands that talk to the extension have in common.

namespace corvid {

/// Exit status when there is no host application that answers.
inline constexpr int kNoHostStatus = 3;

struct LinkOptions {
    bool mayNotStart = false;
    bool isJSON = false;
    double timeoutInSeconds = 10;

    std::chrono::milliseconds timeout() const;
};
/// Adds --no-start, --json and --timeout to `command`.
void addLinkOptions(const Command& command, LinkOptions& options);

/// A connected session. Fails as fail() does, by `deadline` at the latest.
std::unique_ptr<LinkSession> openSession(const LinkOptions& options, const Deadline& deadline);

/// What to say to a person about a host that does not answer; empty when it does.
std::string hostAdvice(const LinkSession& session);

/// The value of "host" in JSON: "present", "absent" or "notAnswering".
std::string_view hostStateName(link::HostState state);

/// An item that a user named: on the volume, and as the link has it. Fails as fail() does when it
/// does not exist or is not on the volume.
link::SelectedItem selectedItem(const std::string& path, const LinkSession& session);

/// The folder part of a path, and its last component.
std::string folderOf(const std::string& path);
std::string nameOf(const std::string& path);

/// Adds "name", and, where that is not UTF-8, "nameBytes" in hexadecimal digits to `object`.
void addName(nlohmann::json& object, const std::string& name);

/// One line of JSON on standard output, flushed. Text that is not UTF-8 has replacement characters.
void printJSON(const nlohmann::json& value, int indentation = -1);

} // namespace corvid
