#include "Commands.h"
#include "Core/Base/PrintableText.h"
#include "LinkCommand.h"
#include "Tools/Support/Terminal.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace corvid {

using namespace link;

namespace {

/// What to do about what is wrong; empty when nothing is.
std::string remedy(const StatusReply& status, const LinkSession& session) {
    return !status.problem.empty() ? status.problem : hostAdvice(session);
}

std::string duration(double milliseconds) {
    char text[32];
    if (milliseconds < 1000) {
        std::snprintf(text, sizeof text, "%.2f ms", milliseconds);
    } else {
        std::snprintf(text, sizeof text, "%.0f s", milliseconds / 1000);
    }
    return text;
}

void row(const char* title, const std::string& text) {
    const std::string coloredTitle = coloured(title, Colour::bold, mayColour(stdout));
    const std::size_t invisible = coloredTitle.size() - std::string_view(title).size();
    std::printf("%-*s %s\n", static_cast<int>(12 + invisible), coloredTitle.c_str(), text.c_str());
}

std::string hostText(const StatusReply& status) {
    switch (status.hostState) {
    case HostState::absent:
        return "not running";
    case HostState::present:
    case HostState::notAnswering:
        return (status.hostState == HostState::present ? "running" : "running, but not answering") +
               (status.hostPid != 0 ? ", process " + std::to_string(status.hostPid) : "");
    }
    return {};
}

void print(const StatusReply& status, std::chrono::microseconds link, const std::string& advice) {
    row("Extension", "running, process " + std::to_string(status.pid) + ", version " +
                         printableText(status.programVersion));
    row("Volume", printableText(status.volume) +
                      (status.isVolumeFixed ? "" : " (until a host names another)"));
    row("Host", hostText(status));
    std::string frontEnds;
    for (const std::string& name : status.frontEnds) {
        frontEnds += (frontEnds.empty() ? "" : ", ") + printableText(name);
    }
    row("Front ends", std::to_string(status.frontEnds.size()) + " connected: " + frontEnds);
    row("Shown", std::to_string(status.shownFolders) + " folders, " +
                     std::to_string(status.waitingQuestions) + " badges still to be asked for");
    row("Messages", std::to_string(status.messagesSent) + " sent to the host, " +
                        std::to_string(status.messagesFailed) + " failed");
    row("Round trip",
        duration(static_cast<double>(link.count()) / 1000) + " to the extension, " +
            (status.roundTrip
                 ? duration(static_cast<double>(status.roundTrip->count()) / 1000) + " to the host"
                 : "the host was not asked yet"));
    row("Last failure", status.lastFailure.empty()
                            ? "none"
                            : printableText(status.lastFailure) + " (" +
                                  duration(static_cast<double>(status.sinceLastFailure.count())) +
                                  " ago)");
    if (!status.logProblem.empty()) {
        row("Log", printableText(status.logProblem));
    }
    if (!advice.empty()) {
        row("To do", advice);
    }
}

void showStatus(const LinkOptions& options) {
    const Deadline deadline(options.timeout());
    const auto session = openSession(options, deadline);
    StatusReply status;
    std::chrono::microseconds link{0};
    try {
        link = session->ping(deadline);
        status = session->status(deadline);
    } catch (const LinkError& error) {
        fail(error.what());
    }
    const std::string advice = remedy(status, *session);
    if (options.isJSON) {
        nlohmann::json object{
            {"extension", {{"pid", status.pid}, {"version", status.programVersion}}},
            {"volume", {{"folder", status.volume}, {"fixed", status.isVolumeFixed}}},
            {"host", {{"state", hostStateName(status.hostState)}, {"pid", nullptr}}},
            {"frontEnds", status.frontEnds},
            {"shownFolders", status.shownFolders},
            {"waitingQuestions", status.waitingQuestions},
            {"messagesSent", status.messagesSent},
            {"messagesFailed", status.messagesFailed},
            {"linkRoundTripUs", link.count()},
            {"hostRoundTripUs", nullptr},
            {"lastFailure", nullptr},
            {"logProblem", status.logProblem},
            {"remedy", advice}};
        if (status.hostPid != 0) {
            object["host"]["pid"] = status.hostPid;
        }
        if (status.roundTrip) {
            object["hostRoundTripUs"] = status.roundTrip->count();
        }
        if (!status.lastFailure.empty()) {
            object["lastFailure"] = {{"text", status.lastFailure},
                                     {"msAgo", status.sinceLastFailure.count()}};
        }
        printJSON(object, 2);
    } else {
        print(status, link, advice);
    }
    if (status.hostState != HostState::present) {
        throw CommandFailure{kNoHostStatus};
    }
}

} // namespace

void addStatusCommand(const Command& program) {
    auto options = std::make_shared<LinkOptions>();
    const Command command =
        program.addCommand("status", "Say how the extension, the host and the volume are");
    addLinkOptions(command, *options);
    command.setFooter("Exit status: 3 when no host application answers.");
    command.onRun([options] { showStatus(*options); });
}

} // namespace corvid
