#include "HostKit/HostService.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Limits.h"
#include "Extensions/Finder/CVMABadgeID.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "HostKit/MenuCoding.h"
#include "Platform/Interfaces/Dispatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace corvid::hostkit {

namespace {

std::string badgeNames() {
    std::string names;
    for (const CVMABadgeID badge : CVMABadgeID::allValues()) {
        names += fmt::format("{}, ", badge.rawValue());
    }
    return names + "none";
}

std::string unknownBadge(const std::string& badge, const std::string& path) {
    return fmt::format("\"{}\" for {} is no badge; it is one of {}", badge, path, badgeNames());
}

/// Writers other than the platform's own may send a Boolean as a number.
std::optional<bool> truth(const Value* value) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (const bool* boolean = value->asBoolean()) {
        return *boolean;
    }
    if (const std::int64_t* number = value->asInteger()) {
        return *number != 0;
    }
    return std::nullopt;
}

/// What of a text from outside stands in a problem.
std::string shortened(std::string_view text) {
    constexpr std::size_t kMostShown = 1'000;
    return text.size() <= kMostShown ? std::string(text)
                                     : std::string(text.substr(0, kMostShown)) + "…";
}

/// As for every message port.
constexpr std::size_t kMostPortNameBytes = 255;

std::string parentOf(const std::string& path) {
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

} // namespace

HostService::HostService(VolumeMapping mapping, Application& application, MessagePortService& ports,
                         DispatchQueue& callbacks)
    : mapping_(std::move(mapping)), application_(application), ports_(ports), callbacks_(callbacks),
      senders_(
          ports,
          [this](const std::string& portName) {
              callbacks_.async([this, portName] {
                  if (senders_.removeGone(portName)) {
                      extensionRemoved(portName);
                  }
              });
          },
          [this](const std::string& text) { callbacks_.async([this, text] { problem(text); }); }) {}

HostService::~HostService() = default;

bool HostService::open() {
    port_ = ports_.createLocal(
        CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue(),
        [this](MessagePort&, std::int32_t messageID, std::optional<ByteView> data) {
            return answer(messageID, data);
        });
    if (port_ == nullptr) {
        return false;
    }
    ports_.setDispatchQueue(*port_, callbacks_);
    return true;
}

void HostService::close() {
    if (port_ != nullptr) {
        ports_.invalidate(*port_);
        port_ = nullptr;
    }
    senders_.stop();
}

void HostService::push(const std::string& path, const std::string& badge, PushTo to) {
    if (!CVMABadgeID::fromRawValue(badge)) {
        throw Error(unknownBadge(badge, path));
    }
    const std::optional<std::string> volumePath = mapping_.toVolume(path);
    if (!volumePath) {
        throw Error(fmt::format("{} is not in the folder {} that this host serves; push absolute "
                                "paths below it",
                                path, mapping_.localFolder()));
    }
    const std::optional<URL> url = URL::fileURL(*volumePath);
    if (!url) {
        return; // the name is not UTF-8
    }
    std::string item = mapping_.toLocal(*volumePath).value();
    if (to == PushTo::whoShowsTheFolder && !isShown(parentOf(item))) {
        return;
    }
    if (senders_.count() == 0) {
        return;
    }
    Bytes payload = archivedData(
        Value::dictionary({{"badgeID", Value::string(badge)}, {"path", Value::url(*url)}}));
    senders_.push(std::make_shared<const PushLane::Push>(
        PushLane::Push{std::move(item), std::move(payload)}));
}

bool HostService::flush(std::chrono::steady_clock::time_point deadline) {
    return senders_.waitUntilSent(deadline);
}

bool HostService::isShown(const std::string& path) const {
    const MutexLock lock(mutex_);
    return shown_.contains(path);
}

std::optional<Bytes> HostService::answer(std::int32_t messageID, std::optional<ByteView> data) {
    std::optional<Bytes> reply;
    guarded("answering a message", [&] { reply = answerUnguarded(messageID, data); });
    return reply;
}

std::optional<Bytes> HostService::answerUnguarded(std::int32_t messageID,
                                                  std::optional<ByteView> data) {
    const std::optional<CVMAMessageID> message = CVMAMessageID::fromRawValue(messageID);
    std::optional<Value> root;
    if (data) {
        root = unarchivedObject(*data);
    }
    const Dictionary* payload = root ? root->asDictionary() : nullptr;
    if (!message || payload == nullptr) {
        problem(fmt::format("a message with the number {} was not understood and is ignored; "
                            "is the extension of another version?",
                            messageID));
        return std::nullopt;
    }
    if (*message == CVMAMessageID::requestBadge) {
        return answerBadge(*payload);
    }
    if (*message == CVMAMessageID::requestActions) {
        return answerMenu(*payload);
    }
    if (*message == CVMAMessageID::performAction) {
        performAction(*payload);
    } else if (*message == CVMAMessageID::updatePortIDs) {
        updatePorts(*payload);
    } else if (*message == CVMAMessageID::updatePathCache) {
        updateShownFolders(*payload);
    }
    return std::nullopt;
}

std::optional<Bytes> HostService::answerBadge(const Dictionary& message) {
    const std::optional<std::string> path = localPath(message.find("url"));
    if (!path) {
        return archivedData(Value::string("none"));
    }
    std::string badge;
    if (!guarded("badge()", [&] { badge = application_.badge(*path); })) {
        return std::nullopt;
    }
    if (!CVMABadgeID::fromRawValue(badge)) {
        problem("the badge " + unknownBadge(badge, *path));
        return std::nullopt;
    }
    return archivedData(Value::string(badge));
}

std::optional<Bytes> HostService::answerMenu(const Dictionary& message) {
    const std::optional<std::vector<std::string>> paths = localPaths(message.find("paths"));
    if (!paths) {
        return std::nullopt;
    }
    const bool operatingOnParent = truth(message.find("operatingOnParent")).value_or(false);
    std::vector<MenuItem> items;
    if (!guarded("menu()", [&] { items = application_.menu(*paths, operatingOnParent); })) {
        return std::nullopt;
    }
    if (const auto fault = menuFault(items)) {
        problem("the menu was not sent: " + *fault);
        return std::nullopt;
    }
    std::vector<Value> values;
    for (const auto& item : menuToSend(items)) {
        values.push_back(Value::menuItem(item));
    }
    return archivedData(Value::array(std::move(values)));
}

void HostService::performAction(const Dictionary& message) {
    const Value* value = message.find("action");
    const std::shared_ptr<corvid::MenuItem> item = value ? value->asMenuItem() : nullptr;
    if (item == nullptr) {
        problem("a click came without its menu entry and is ignored");
        return;
    }
    const std::optional<std::string> action = clickedAction(*item);
    if (!action) {
        problem(fmt::format("the click on \"{}\" came without the action of that entry, and is "
                            "ignored; open the menu again",
                            shortened(item->title)));
        return;
    }
    auto paths = localPaths(message.find("path"));
    if (!paths) {
        return;
    }
    const Click click{*action, item->title, item->tag, *std::move(paths)};
    guarded("actionPerformed()", [&] { application_.actionPerformed(click); });
}

void HostService::updatePorts(const Dictionary& message) {
    const Value* portID = message.find("portId");
    const std::string* name = portID ? portID->asString() : nullptr;
    const std::optional<bool> isOpen = truth(message.find("register"));
    if (name == nullptr || name->empty() || !isOpen) {
        problem("an extension registered without its name and is ignored");
        return;
    }
    if (*isOpen) {
        registerExtension(*name);
    } else {
        removeExtension(*name);
    }
}

void HostService::updateShownFolders(const Dictionary& message) {
    const std::optional<std::string> path = localPath(message.find("path"));
    const std::optional<bool> isShown = truth(message.find("add"));
    if (!path || !isShown) {
        return;
    }
    bool isChange = false;
    {
        const MutexLock lock(mutex_);
        isChange = *isShown ? shown_.begin(*path) : shown_.end(*path);
    }
    if (isChange && *isShown) {
        guarded("folderShown()", [&] { application_.folderShown(*path); });
    } else if (isChange) {
        guarded("folderHidden()", [&] { application_.folderHidden(*path); });
    }
}

void HostService::registerExtension(const std::string& portName) {
    if (portName.size() > kMostPortNameBytes) {
        problem(fmt::format("an extension registered with a name of {} bytes and is ignored; a "
                            "name has at most {}",
                            portName.size(), kMostPortNameBytes));
        return;
    }
    if (ports_.presenceOf(portName).state == PortPresence::State::gone) {
        problem(fmt::format("an extension registered as {}, but nobody serves that port, and it is "
                            "ignored; an extension opens its port first",
                            portName));
        return;
    }
    addExtension(portName);
}

void HostService::addExtension(const std::string& portName) {
    guarded("taking an extension in", [&] {
        switch (senders_.add(portName)) {
        case PushSenders::Added::isNew:
            guarded("extensionChanged()", [&] { application_.extensionChanged(portName, true); });
            break;
        case PushSenders::Added::isFull:
            problem(fmt::format("the extension {} gets no pushes, since {} are served already; end "
                                "those that you do not need, then start this one again",
                                portName, PushSenders::kMostLanes));
            break;
        default:
            break;
        }
    });
}

void HostService::removeExtension(const std::string& portName) {
    if (senders_.remove(portName)) {
        extensionRemoved(portName);
    }
}

void HostService::extensionRemoved(const std::string& portName) {
    std::vector<std::string> hidden;
    // Begins and ends do not say whose they are; with nobody left they are nobody's.
    if (senders_.count() == 0) {
        guarded("forgetting the shown folders", [&] {
            const MutexLock lock(mutex_);
            hidden = shown_.clear();
        });
    }
    guarded("extensionChanged()", [&] { application_.extensionChanged(portName, false); });
    for (const std::string& path : hidden) {
        guarded("folderHidden()", [&] { application_.folderHidden(path); });
    }
}

std::optional<std::string> HostService::localPath(const Value* url) {
    const URL* fileURL = url ? url->asURL() : nullptr;
    if (fileURL == nullptr || !fileURL->isFileURL()) {
        problem("a message came without the file that it is about and is ignored");
        return std::nullopt;
    }
    if (fileURL->isOfOtherHost()) {
        problem(fmt::format("{} is on another computer and is ignored", fileURL->absoluteString()));
        return std::nullopt;
    }
    std::optional<std::string> path = mapping_.toLocal(fileURL->path());
    if (!path) {
        problem(fmt::format("{} is not on the volume {} and is ignored",
                            shortened(fileURL->absoluteString()), kVolumeRoot));
    }
    return path;
}

std::optional<std::vector<std::string>> HostService::localPaths(const Value* urls) {
    std::vector<std::string> paths;
    const Array* array = urls ? urls->asArray() : nullptr;
    if (array == nullptr) {
        problem("a message came without the files that it is about");
        return paths;
    }
    // Many elements may be one long URL: a message of a few mebibytes could say terabytes.
    std::size_t textLeft = limits::kArchiveSize;
    for (const Value& value : array->elements) {
        const URL* url = value.asURL();
        const std::size_t size = url != nullptr ? url->absoluteString().size() : 0;
        if (size > textLeft) {
            problem(fmt::format("a message about {} files unfolds into more than {} bytes and is "
                                "ignored",
                                array->elements.size(), limits::kArchiveSize));
            return std::nullopt;
        }
        textLeft -= size;
        if (auto path = localPath(&value)) {
            paths.push_back(*std::move(path));
        }
    }
    return paths;
}

void HostService::problem(const std::string& text) {
    try {
        application_.problem(text);
    } catch (...) {
        // There is nobody left to tell.
    }
}

bool HostService::guarded(const char* what, const std::function<void()>& call) {
    try {
        call();
        return true;
    } catch (const std::exception& error) {
        failed(what, error.what());
    } catch (...) {
        failed(what, "an exception left it that is no std::exception");
    }
    return false;
}

void HostService::failed(const char* what, const char* why) noexcept {
    try {
        problem(fmt::format("{} failed: {}", what, why));
    } catch (...) {
        // No memory for the words.
    }
}

} // namespace corvid::hostkit
