#include "HostKit/HostService.h"

#include "Core/Archive/KeyedArchive.h"
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

std::string parentOf(const std::string& path) {
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

} // namespace

HostService::HostService(VolumeMapping mapping, Application& application, MessagePortService& ports,
                         DispatchQueue& callbacks)
    : mapping_(std::move(mapping)), application_(application), ports_(ports),
      callbacks_(callbacks) {}

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
    std::vector<std::shared_ptr<PushLane>> lanes;
    {
        const MutexLock lock(mutex_);
        isClosed_ = true;
        lanes = std::move(retired_);
        for (auto& [name, lane] : lanes_) {
            lanes.push_back(std::move(lane));
        }
        lanes_.clear();
    }
    // All are stopped before the first is waited for.
    for (const auto& lane : lanes) {
        lane->stop();
    }
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
    const std::string item = mapping_.toLocal(*volumePath).value();
    std::vector<std::shared_ptr<PushLane>> lanes;
    {
        const MutexLock lock(mutex_);
        if (to == PushTo::whoShowsTheFolder && !shown_.contains(parentOf(item))) {
            return;
        }
        for (const auto& [name, lane] : lanes_) {
            lanes.push_back(lane);
        }
    }
    if (lanes.empty()) {
        return;
    }
    const auto payload = std::make_shared<const Bytes>(archivedData(
        Value::dictionary({{"badgeID", Value::string(badge)}, {"path", Value::url(*url)}})));
    for (const auto& lane : lanes) {
        lane->push(item, payload);
    }
}

bool HostService::flush(std::chrono::steady_clock::time_point deadline) {
    std::vector<std::shared_ptr<PushLane>> lanes;
    {
        const MutexLock lock(mutex_);
        for (const auto& [name, lane] : lanes_) {
            lanes.push_back(lane);
        }
    }
    return std::ranges::all_of(
        lanes, [deadline](const auto& lane) { return lane->waitUntilSent(deadline); });
}

bool HostService::isShown(const std::string& path) const {
    const MutexLock lock(mutex_);
    return shown_.contains(path);
}

std::optional<Bytes> HostService::answer(std::int32_t messageID, std::optional<ByteView> data) {
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
    if (!guarded("badge", [&] { badge = application_.badge(*path); })) {
        return std::nullopt;
    }
    if (!CVMABadgeID::fromRawValue(badge)) {
        problem("the badge " + unknownBadge(badge, *path));
        return std::nullopt;
    }
    return archivedData(Value::string(badge));
}

std::optional<Bytes> HostService::answerMenu(const Dictionary& message) {
    const std::vector<std::string> paths = localPaths(message.find("paths"));
    const bool operatingOnParent = truth(message.find("operatingOnParent")).value_or(false);
    std::vector<MenuItem> items;
    if (!guarded("menu", [&] { items = application_.menu(paths, operatingOnParent); })) {
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
                            item->title));
        return;
    }
    const Click click{*action, item->title, item->tag, localPaths(message.find("path"))};
    guarded("actionPerformed", [&] { application_.actionPerformed(click); });
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
        addExtension(*name);
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
        guarded("folderShown", [&] { application_.folderShown(*path); });
    } else if (isChange) {
        guarded("folderHidden", [&] { application_.folderHidden(*path); });
    }
}

void HostService::addExtension(const std::string& portName) {
    {
        const MutexLock lock(mutex_);
        if (isClosed_ || lanes_.contains(portName)) {
            return;
        }
        lanes_.emplace(portName, std::make_shared<PushLane>(ports_, portName, [this, portName] {
                           callbacks_.async([this, portName] { removeExtension(portName); });
                       }));
    }
    guarded("extensionChanged", [&] { application_.extensionChanged(portName, true); });
}

void HostService::removeExtension(const std::string& portName) {
    std::vector<std::string> hidden;
    {
        const MutexLock lock(mutex_);
        std::erase_if(retired_, [](const auto& lane) { return lane->isFinished(); });
        const auto found = lanes_.find(portName);
        if (found == lanes_.end()) {
            return;
        }
        found->second->stop();
        retired_.push_back(found->second);
        lanes_.erase(found);
        // Begins and ends do not say whose they are; with nobody left they are nobody's.
        if (lanes_.empty()) {
            hidden = shown_.clear();
        }
    }
    guarded("extensionChanged", [&] { application_.extensionChanged(portName, false); });
    for (const std::string& path : hidden) {
        guarded("folderHidden", [&] { application_.folderHidden(path); });
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
        problem(fmt::format("{} is not on the volume {} and is ignored", fileURL->absoluteString(),
                            kVolumeRoot));
    }
    return path;
}

std::vector<std::string> HostService::localPaths(const Value* urls) {
    std::vector<std::string> paths;
    const Array* array = urls ? urls->asArray() : nullptr;
    if (array == nullptr) {
        problem("a message came without the files that it is about");
        return paths;
    }
    for (const Value& url : array->elements) {
        if (auto path = localPath(&url)) {
            paths.push_back(*std::move(path));
        }
    }
    return paths;
}

void HostService::problem(const std::string& text) {
    try {
        application_.problem(text);
    } catch (const std::exception&) {
        // There is nobody left to tell.
    }
}

bool HostService::guarded(const char* member, const std::function<void()>& call) {
    try {
        call();
        return true;
    } catch (const std::exception& error) {
        problem(fmt::format("{}() failed: {}", member, error.what()));
        return false;
    }
}

} // namespace corvid::hostkit
