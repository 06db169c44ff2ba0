// A host application for the shell's tests. It writes a line for every message that it gets and
// ends with the extension that unregisters. Each newline on its standard input pushes one badge.

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/OpaqueObject.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Tests/Support/ValueText.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace corvid;

std::mutex portIdMutex;
std::string portId;

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::shared_ptr<MenuItem> entry(std::string title, std::int64_t tag, const char* action) {
    auto item = std::make_shared<MenuItem>();
    item->title = std::move(title);
    item->tag = tag;
    if (action != nullptr) {
        item->action = Selector{action};
    }
    return item;
}

/// A title with attributes, none of which need a class of AppKit.
Value attributedTitle(std::string text) {
    auto title = std::make_shared<OpaqueObject>();
    title->archivedClass = std::make_shared<const ObjectClass>(
        ObjectClass{"NSAttributedString", {"NSAttributedString", "NSObject"}, {}});
    title->fields = fieldsWith(nullptr, "NSString", Value::string(std::move(text)));
    title->fields = fieldsWith(title->fields, "NSAttributes", Value::dictionary({}));
    return Value::opaque(title);
}

/// An item of every kind.
Value menu() {
    const auto everything = entry("Schließen …", 1, "close:");
    everything->keyEquivalent = "k";
    everything->keyEquivalentModifierMask = 1 << 20;
    everything->state = MenuItemState::mixed;
    everything->indentationLevel = 2;
    everything->isAlternate = true;
    everything->isHidden = true;
    everything->toolTip = "what it does";
    everything->otherFields =
        fieldsWith(nullptr, "NSAttributedTitle", attributedTitle("Schließen, kursiv"));
    everything->otherFields = fieldsWith(
        everything->otherFields, "NSRepObject",
        Value::dictionary({{"id", Value::integer(42)},
                           {"names", Value::array({Value::string("a"), Value::string("ü")})}}));
    const auto disabled = entry("Disabled", 2, "disabled:");
    disabled->isEnabled = false;
    const auto checked = entry("Checked", 3, "checked:");
    checked->state = MenuItemState::on;

    const auto deep = entry("Deep", 43, nullptr);
    deep->setSubmenu(std::make_shared<Menu>());
    deep->submenu->title = "deeper";
    deep->submenu->add(entry("Deepest", 431, "deepest:"));
    const auto more = entry("More", 4, nullptr);
    more->setSubmenu(std::make_shared<Menu>());
    more->submenu->title = "more";
    for (const auto& below :
         {entry("Copy Path", 41, "copyPath:"), entry("Without action", 42, nullptr), deep}) {
        more->submenu->add(below);
    }
    const auto sameTag = entry("Same tag as the first", 1, "second:");
    std::vector<Value> items;
    for (const auto& item : {everything, disabled, checked, MenuItem::separator(), more, sameTag}) {
        items.push_back(Value::menuItem(item));
    }
    return Value::array(std::move(items));
}

/// By the item's name: "synced.txt" is synced. An item called "number" gets no badge but a number,
/// and one called "silence" nothing.
std::optional<Bytes> badge(const Value& request) {
    const std::string path = request.asDictionary()->find("url")->asURL()->path();
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name == "silence") {
        return std::nullopt;
    }
    return archivedData(name == "number" ? Value::integer(7)
                                         : Value::string(name.substr(0, name.find('.'))));
}

std::optional<Bytes> receive(std::int32_t messageID, const Value& message) {
    const auto identifier = CVMAMessageID::fromRawValue(messageID);
    say((identifier ? std::string(identifier->caseName()) : std::to_string(messageID)) + " " +
        valueText(message));
    if (identifier == CVMAMessageID::requestBadge) {
        return badge(message);
    }
    if (identifier == CVMAMessageID::requestActions) {
        return archivedData(menu());
    }
    if (identifier == CVMAMessageID::updatePortIDs) {
        if (!*message.asDictionary()->find("register")->asBoolean()) {
            std::_Exit(0);
        }
        const std::lock_guard lock(portIdMutex);
        portId = *message.asDictionary()->find("portId")->asString();
    }
    return std::nullopt;
}

void push(MessagePortService& ports, const char* badgeID, const char* path) {
    std::string name;
    {
        const std::lock_guard lock(portIdMutex);
        name = portId;
    }
    const Bytes message = archivedData(Value::dictionary(
        {{"badgeID", Value::string(badgeID)}, {"path", Value::url(*URL::fileURL(path))}}));
    const MessagePortRef remote = ports.createRemote(name);
    if (remote == nullptr) {
        say("no port to push to");
        return;
    }
    ports.sendRequest(*remote, CVMAMessageID::provideBadge, message, std::chrono::seconds(20),
                      std::chrono::seconds(20), std::nullopt, nullptr);
}

} // namespace

int main() {
    UnixDispatch dispatch;
    UnixMessagePortService ports;
    const MessagePortRef port =
        ports.createLocal(CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue(),
                          [](MessagePort&, std::int32_t messageID, std::optional<ByteView> data) {
                              const auto message = unarchivedObject(data.value_or(ByteView()));
                              return receive(messageID, message.value_or(Value()));
                          });
    if (port == nullptr) {
        say("the host's port is taken");
        return 1;
    }
    ports.setDispatchQueue(*port, dispatch.serialQueue("host"));
    say("ready");

    constexpr std::pair<const char*, const char*> kPushes[] = {
        {"inProgress", "/Volumes/Corvid/pushed ü.txt"},
        {"none", "/Volumes/Corvid/pushed ü.txt"},
        {"error", "/Volumes/Corvid/Report.tmp"},
        {"accessDenied", "/Volumes/Corvid/last.txt"}};
    for (std::size_t next = 0; std::getchar() != EOF; ++next) {
        if (next < std::size(kPushes)) {
            push(ports, kPushes[next].first, kPushes[next].second);
        }
    }
    // The test has gone; the extension's last message ends the process otherwise.
    return 1;
}
