#include "Extensions/Finder/CVMAMessagePort.h"

#include "App/Reporting/AppReportingService.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/Fatal.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Extensions/Finder/LogText.h"
#include "Platform/Interfaces/Platform.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

namespace corvid {

namespace {

constexpr std::chrono::milliseconds kSendTimeout{1000};
constexpr std::chrono::milliseconds kReceiveTimeout{1000};

// Far above any menu that somebody could use.
constexpr std::size_t kMostMenuEntries = 1'000'000;

constexpr int kFailureLevel = 2;
constexpr int kTraceLevel = 5;

void logLine(std::string_view message, int level) {
    requiredReportingService().log(message, level);
}

Value urlList(const std::vector<URL>& urls) {
    std::vector<Value> elements;
    elements.reserve(urls.size());
    for (const URL& url : urls) {
        elements.push_back(Value::url(url));
    }
    return Value::array(std::move(elements));
}

std::string hostPortName() {
    return std::string(CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue());
}

/// Sends without reply; what a failure means to the caller is nothing.
void sendOneWay(CVMAMessageID messageID, std::vector<std::pair<std::string, Value>> payload) {
    std::optional<Bytes> noResponse;
    CVMAMessagePort::dispatchMessage(hostPortName(), messageID, false,
                                     archivedData(Value::dictionary(std::move(payload))),
                                     noResponse);
}

/// Sends with reply; nothing when no reply came or it could not be decoded.
std::optional<Value> ask(CVMAMessageID messageID,
                         std::vector<std::pair<std::string, Value>> payload) {
    std::optional<Bytes> response;
    CVMAMessagePort::dispatchMessage(hostPortName(), messageID, true,
                                     archivedData(Value::dictionary(std::move(payload))), response);
    return response ? unarchivedObject(*response) : std::nullopt;
}

/// Takes what `item` and all below it say off the two counts, each entry where it stands; false
/// when that is too much. Many entries may be one object: a few bytes can say a menu of terabytes.
bool takeOff(const MenuItem& item, std::size_t& entriesLeft, std::size_t& textLeft) {
    if (entriesLeft == 0 || item.title.size() > textLeft) {
        return false;
    }
    --entriesLeft;
    textLeft -= item.title.size();
    return item.submenu == nullptr ||
           std::all_of(item.submenu->items.begin(), item.submenu->items.end(),
                       [&](const auto& below) { return takeOff(*below, entriesLeft, textLeft); });
}

/// Nothing when `value` is not an array whose every element is a menu item, or unfolds into more
/// than any message holds.
std::optional<std::vector<std::shared_ptr<MenuItem>>> menuItems(const Value& value) {
    const Array* array = value.asArray();
    if (array == nullptr) {
        return std::nullopt;
    }
    std::vector<std::shared_ptr<MenuItem>> items;
    items.reserve(array->elements.size());
    std::size_t entriesLeft = kMostMenuEntries;
    std::size_t textLeft = kMaxMessageBytes;
    for (const Value& element : array->elements) {
        std::shared_ptr<MenuItem> item = element.asMenuItem();
        if (item == nullptr || !takeOff(*item, entriesLeft, textLeft)) {
            return std::nullopt;
        }
        items.push_back(std::move(item));
    }
    return items;
}

std::string titlesText(const std::vector<std::shared_ptr<MenuItem>>& items) {
    std::vector<std::string> titles;
    titles.reserve(items.size());
    for (const auto& item : items) {
        titles.push_back(item->title);
    }
    return logText(titles);
}

} // namespace

DispatchQueue& CVMAMessagePort::messagePortQueue() {
    return platform().dispatch.serialQueue("com.Corvid.desktop.widget.MessagePortQueue");
}

void CVMAMessagePort::dispatchMessage(const std::string& portName, CVMAMessageID messageID,
                                      bool replyModeRequired, ByteView dataToSend,
                                      std::optional<Bytes>& serverResponse) {
    MessagePortService& ports = platform().messagePorts;
    MessagePortRef remote = ports.createRemote(portName);
    if (remote == nullptr) {
        logLine("<UI> MessagePort: Unable to open server port", kFailureLevel);
        return;
    }
    std::optional<std::string> replyMode;
    if (replyModeRequired) {
        replyMode = portName + ".replymode";
    }
    const SendStatus status =
        ports.sendRequest(*remote, messageID.rawValue(), dataToSend, kSendTimeout, kReceiveTimeout,
                          replyMode, &serverResponse);
    remote.reset();
    if (status != SendStatus::success) {
        logLine("<UI> MessagePort: Error sending message with messageID = " +
                    std::string(messageID.caseName()) + " to portname = " + portName,
                kFailureLevel);
    }
}

void CVMAMessagePort::dispatchMessage(const std::vector<std::string>& portNames,
                                      CVMAMessageID messageID, bool replyModeRequired,
                                      ByteView dataToSend, std::optional<Bytes>& serverResponse) {
    for (const std::string& portName : portNames) {
        dispatchMessage(portName, messageID, replyModeRequired, dataToSend, serverResponse);
    }
}

std::vector<std::shared_ptr<MenuItem>>
CVMAMessagePort::requestActionsForItems(const std::vector<URL>& urls, bool operatingOnParent) {
    const std::string urlsText = logText(urls);
    logLine("<UI> MessagePort: Request actions for urls = " + urlsText, kTraceLevel);
    const std::optional<Value> reply =
        ask(CVMAMessageID::requestActions,
            {{"paths", urlList(urls)}, {"operatingOnParent", Value::boolean(operatingOnParent)}});
    if (reply) {
        if (auto items = menuItems(*reply)) {
            logLine("<UI> MessagePort: Request action response = " + titlesText(*items) +
                        " for urls = " + urlsText,
                    kTraceLevel);
            return std::move(*items);
        }
    }
    logLine("<UI> MessagePort: Unexpected request actions response for urls = " + urlsText + "!",
            kFailureLevel);
    return {};
}

CVMABadgeID CVMAMessagePort::requestBadgeIDs(const URL& url) {
    logLine("<UI> MessagePort: Request badge for url = " + logText(url), kTraceLevel);
    const std::optional<Value> reply = ask(CVMAMessageID::requestBadge, {{"url", Value::url(url)}});
    const std::string* rawValue = reply ? reply->asString() : nullptr;
    if (rawValue == nullptr) {
        // An item whose state cannot be learned shows the cloud badge, never none.
        logLine("<UI> MessagePort: Unexpected Badge response for url = " + logText(url),
                kFailureLevel);
        return CVMABadgeID::cloud;
    }
    logLine("<UI> MessagePort: Badge response = " + *rawValue + " for url = " + logText(url),
            kTraceLevel);
    const std::optional<CVMABadgeID> badge = CVMABadgeID::fromRawValue(*rawValue);
    if (!badge) {
        fatal("the host application answered a badge request with an unknown badge");
    }
    return *badge;
}

void CVMAMessagePort::perform(const std::shared_ptr<MenuItem>& action,
                              const std::vector<URL>& paths) {
    logLine("<UI> MessagePort: performing action = " + action->title +
                " for paths = " + logText(paths),
            kTraceLevel);
    // "path", though it holds a list.
    sendOneWay(CVMAMessageID::performAction,
               {{"action", Value::menuItem(action)}, {"path", urlList(paths)}});
}

void CVMAMessagePort::registerPort(const std::string& portId, bool registering) {
    logLine(std::string("<UI> MessagePort: ") + (registering ? "Registering" : "Unregistering") +
                " portId = " + portId,
            kTraceLevel);
    sendOneWay(CVMAMessageID::updatePortIDs,
               {{"portId", Value::string(portId)}, {"register", Value::boolean(registering)}});
}

void CVMAMessagePort::updatePathCache(const URL& path, bool add) {
    // "from path cache" in both cases.
    logLine(std::string("<UI> MessagePort: ") + (add ? "Adding" : "Removing") +
                " path = " + logText(path) + " from path cache",
            kTraceLevel);
    sendOneWay(CVMAMessageID::updatePathCache,
               {{"path", Value::url(path)}, {"add", Value::boolean(add)}});
}

void CVMAMessagePort::provide(const std::vector<std::string>& portIds, CVMABadgeID badgeID,
                              const URL& path) {
    logLine("<UI> MessagePort: Providing badgeID = " + std::string(badgeID.rawValue()) +
                " to portIds = " + logText(portIds) + " for path = " + logText(path),
            kTraceLevel);
    std::optional<Bytes> noResponse;
    dispatchMessage(
        portIds, CVMAMessageID::provideBadge, false,
        archivedData(Value::dictionary({{"badgeID", Value::string(std::string(badgeID.rawValue()))},
                                        {"path", Value::url(path)}})),
        noResponse);
}

MessagePortRef CVMAMessagePort::createServerPort(const std::string& portName,
                                                 MessagePortCallback callback) {
    logLine("<UI> MessagePort: creating server port with identifier = " + portName, kTraceLevel);
    MessagePortService& ports = platform().messagePorts;
    MessagePortRef port = ports.createLocal(portName, std::move(callback));
    if (port == nullptr) {
        logLine("<UI> MessagePort: failed to create server port", kFailureLevel);
        return nullptr;
    }
    ports.setDispatchQueue(*port, messagePortQueue());
    return port;
}

void CVMAMessagePort::removeServerPort(const MessagePortRef& port) {
    logLine("<UI> MessagePort: invalidating server port", kTraceLevel);
    platform().messagePorts.invalidate(*port);
}

} // namespace corvid
