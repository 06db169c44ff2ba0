#include "Extensions/Finder/CVMABadgeHandler.h"

#include "App/Logging/Logger.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/Fatal.h"
#include "Core/Base/Mutex.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePort.h"

#include <algorithm>
#include <memory>

namespace corvid {

namespace {

// Set on the thread that starts a controller, read on the queue of the message ports.
struct DelegateSlot {
    Mutex mutex;
    std::shared_ptr<DelegateGate> delegate CORVID_GUARDED_BY(mutex);
};

DelegateSlot& delegateSlot() {
    // Never destroyed: the queue may still run when the process ends.
    static DelegateSlot& slot = *new DelegateSlot;
    return slot;
}

bool hasStringKeys(const Dictionary& dictionary) {
    return std::all_of(dictionary.entries.begin(), dictionary.entries.end(),
                       [](const auto& entry) { return entry.first.asString() != nullptr; });
}

} // namespace

CVMABadgeHandler::CVMABadgeHandler(const std::string& portId, CVMABadgeDelegate& badgeDelegate) {
    setDelegate(badgeDelegate);
    port_ = CVMAMessagePort::createServerPort(portId, &CVMABadgeHandler::receive);
}

CVMABadgeHandler::~CVMABadgeHandler() {
    if (port_ != nullptr) {
        CVMAMessagePort::removeServerPort(port_);
    }
    Logger::log("<UI> Deinit of CVMABadgeHandler");
}

DelegateGate::Visit CVMABadgeHandler::delegate() {
    DelegateSlot& slot = delegateSlot();
    const MutexLock lock(slot.mutex);
    return DelegateGate::Visit(slot.delegate);
}

void CVMABadgeHandler::setDelegate(CVMABadgeDelegate& delegate) {
    DelegateSlot& slot = delegateSlot();
    const MutexLock lock(slot.mutex);
    slot.delegate = delegate.gate();
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
    const DelegateGate::Visit visit = delegate();
    if (visit.delegate() == nullptr) {
        return;
    }
    const std::optional<CVMABadgeID> badge = CVMABadgeID::fromRawValue(*rawValue);
    if (!badge) {
        fatal("the host application pushed an unknown badge");
    }
    visit.delegate()->setBadge(*badge, *url);
}

} // namespace corvid
