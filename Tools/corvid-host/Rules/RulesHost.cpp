#include "Tools/corvid-host/Rules/RulesHost.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Limits.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Tools/corvid-host/Rules/MessageText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <utility>

namespace corvid {

namespace {

/// Calls `visit` with the items that a message asks about, relative to the volume, until it returns
/// true. One by one, and no more text than a message holds, since many may be one long URL.
void visitItems(const Value& payload, const char* key,
                const std::function<bool(const std::string& item)>& visit) {
    const Dictionary* dictionary = payload.asDictionary();
    const Value* value = dictionary ? dictionary->find(key) : nullptr;
    const auto visitURL = [&visit](const Value& element) {
        const std::string path = element.asURL() ? element.asURL()->path() : "";
        const bool isInVolume =
            path == kVolumeRoot || path.starts_with(std::string(kVolumeRoot) + '/');
        return isInVolume && visit(path.substr(std::min(path.size(), kVolumeRoot.size() + 1)));
    };
    if (value != nullptr && value->asURL()) {
        visitURL(*value);
    } else if (value != nullptr && value->asArray()) {
        std::size_t textLeft = limits::kArchiveSize;
        for (const Value& element : value->asArray()->elements) {
            const URL* url = element.asURL();
            const std::size_t size = url != nullptr ? url->absoluteString().size() : 0;
            if (size > textLeft || visitURL(element)) {
                return;
            }
            textLeft -= size;
        }
    }
}

} // namespace

RulesHost::RulesHost(Options options, EventLog& log)
    : log_(log), options_(std::move(options)),
      ports_([this](std::int32_t id, std::optional<ByteView> data) { return faultOf(id, data); }),
      session_(options_.folder, *this, ports_, ports_.portFolder()) {
    session_.open();
    const std::string& folder = session_.service().mapping().localFolder();
    log_.say("serving", "Serving " + folder + " by rules", {{"folder", folder}});
}

RulesHost::~RulesHost() = default;

std::string RulesHost::badge(const std::string& path) {
    const auto found = given_.find(path);
    return found != given_.end() ? found->second : options_.rules.badge(relative(path));
}

std::vector<hostkit::MenuItem> RulesHost::menu(const std::vector<std::string>& paths, bool) {
    std::vector<std::string> items;
    items.reserve(paths.size());
    for (const std::string& path : paths) {
        items.push_back(relative(path));
    }
    return options_.rules.menu(items);
}

void RulesHost::actionPerformed(const hostkit::Click& click) {
    log_.say("action", fmt::format("{} on {} items", click.title, click.paths.size()),
             {{"action", click.action}, {"title", click.title}, {"paths", click.paths}});
    if (const auto badge = options_.rules.badgeAfter(click.action)) {
        for (const std::string& path : click.paths) {
            given_[path] = *badge;
            session_.service().push(path, *badge, hostkit::PushTo::everyone);
        }
    }
}

void RulesHost::extensionChanged(const std::string& portName, bool isOpen) {
    log_.say("extension",
             fmt::format("{} extension {}", isOpen ? "Serving the" : "Lost the", portName),
             {{"port", portName}, {"open", isOpen}});
}

void RulesHost::problem(const std::string& text) {
    log_.problem(text);
}

std::optional<Fault> RulesHost::faultOf(std::int32_t messageID, std::optional<ByteView> data) {
    if (options_.record != nullptr) {
        std::fprintf(options_.record, "%s\n", messageLine(messageID, data).c_str());
        std::fflush(options_.record);
    }
    const auto message = CVMAMessageID::fromRawValue(messageID);
    const auto payload = data ? unarchivedObject(*data) : std::nullopt;
    const bool isBadge = message == CVMAMessageID::requestBadge;
    if (!payload || (!isBadge && message != CVMAMessageID::requestActions)) {
        return std::nullopt;
    }
    std::optional<Fault> result;
    visitItems(*payload, isBadge ? "url" : "paths", [&](const std::string& item) {
        const Fault* fault =
            options_.rules.fault(isBadge ? FaultyMessage::badge : FaultyMessage::menu, item);
        const bool isForLater =
            fault != nullptr && fault->kind == Fault::Kind::exit && ++met_[fault] <= fault->count;
        if (fault != nullptr && !isForLater) {
            result = *fault;
        }
        return fault != nullptr;
    });
    return result;
}

std::string RulesHost::relative(std::string_view path) const {
    const std::string& folder = session_.service().mapping().localFolder();
    return std::string(path.size() > folder.size() ? path.substr(folder.size() + 1) : "");
}

} // namespace corvid
