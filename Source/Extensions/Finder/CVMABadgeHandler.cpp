#include "Extensions/Finder/CVMABadgeHandler.h"

#include "App/Logging/Logger.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/Fatal.h"
#include "Core/Base/Mutex.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePort.h"

#include <algorithm>

namespace corvid {

namespace {

// Set on the thread that starts a controller, read on the queue of the message ports.
struct DelegateSlot {
    Mutex mutex;
    std::weak_ptr<CVMABadgeDelegate> delegate CORVID_GUARDED_BY(mutex);
};

DelegateSlot& delegateSlot() {
    static DelegateSlot slot;
    return slot;
}

bool hasStringKeys(const Dictionary& dictionary) {
    return std::all_of(dictionary.entries.begin(), dictionary.entries.end(),
                       [](const auto& entry) { return entry.first.asString() != nullptr; });
}

} // namespace

CVMABadgeHandler::CVMABadgeHandler(const std::string& portId,
                                   const std::shared_ptr<CVMABadgeDelegate>& badgeDelegate) {
    setDelegate(badgeDelegate);
    port_ = CVMAMessagePort::createServerPort(portId, &CVMABadgeHandler::receive);
}

CVMABadgeHandler::~CVMABadgeHandler() {
    if (port_ != nullptr) {
        CVMAMessagePort::removeServerPort(port_);
    }
    Logger::log("<UI> Deinit of CVMABadgeHandler");
}

std::shared_ptr<CVMABadgeDelegate> CVMABadgeHandler::delegate() {
    DelegateSlot& slot = delegateSlot();
    const MutexLock lock(slot.mutex);
    return slot.delegate.lock();
}

void CVMABadgeHandler::setDelegate(const std::weak_ptr<CVMABadgeDelegate>& delegate) {
    DelegateSlot& slot = delegateSlot();
    const MutexLock lock(slot.mutex);
    slot.delegate = delegate;
}

std::optional<Bytes> CVMABadgeHandler::receive(MessagePort& /*port*/, std::int32_t messageID,
                                               std::optional<ByteView> data) {
    if (data && messageID == CVMAMessageID::provideBadge) {
        processProvideBadgeMessage(*data);
    }
    return std::nullopt;
}

void CVMABadgeHandler::processProvideBadgeMessage(ByteView data) {
    const std::optional<Value> root = unarchivedObject(data);
    const Dictionary* message = root ? root->asDictionary() : nullptr;
    if (message == nullptr || !hasStringKeys(*message)) {
        return;
    }
    const Value* badgeID = message->find("badgeID");
    const std::string* rawValue = badgeID != nullptr ? badgeID->asString() : nullptr;
    const Value* path = message->find("path");
    const URL* url = path != nullptr ? path->asURL() : nullptr;
    if (rawValue == nullptr || url == nullptr) {
        return;
    }
    const std::shared_ptr<CVMABadgeDelegate> delegate = CVMABadgeHandler::delegate();
    if (delegate == nullptr) {
        return;
    }
    const std::optional<CVMABadgeID> badge = CVMABadgeID::fromRawValue(*rawValue);
    if (!badge) {
        fatal("the host application pushed an unknown badge");
    }
    delegate->setBadge(*badge, *url);
}

} // namespace corvid
