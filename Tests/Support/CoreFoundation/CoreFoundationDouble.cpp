#include "Tests/Support/CoreFoundation/CoreFoundationDouble.h"

#include "Core/Base/Mutex.h"
#include "Core/Base/UTF8.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Tests/Support/CoreFoundation/DispatchDouble.h"

#include <CoreFoundation/CoreFoundation.h>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

using corvid::Bytes;
using corvid::ByteView;

namespace {

std::atomic<long> liveObjects = 0;

/// What CFRelease() counts down.
struct Object {
    Object() { ++liveObjects; }
    virtual ~Object() { --liveObjects; }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    mutable std::atomic<int> references = 1;
};

/// Message ports that are Unix message ports.
struct Ports {
    explicit Ports(const corvid::RuntimeFolder& folder) : service(folder) {}

    corvid::UnixMessagePortService service;
    corvid::Mutex mutex;
    /// The reply of the last callback, where it was more than the service carries: Core Foundation
    /// knows no bound.
    std::optional<Bytes> oversizeReply CORVID_GUARDED_BY(mutex);
    corvid::test::CoreFoundationRequest lastRequest CORVID_GUARDED_BY(mutex);
    /// Open local ports of this process.
    std::map<std::string, CFMessagePortRef> locals CORVID_GUARDED_BY(mutex);
};

std::shared_ptr<Ports>& ports() {
    static auto shared = std::make_shared<Ports>(corvid::RuntimeFolder::ofThisUser());
    return shared;
}

} // namespace

struct __CFString : Object {
    std::string text;
};

struct __CFData : Object {
    Bytes bytes;
};

struct __CFMessagePort : Object {
    ~__CFMessagePort() override { CFMessagePortInvalidate(this); }

    std::shared_ptr<Ports> owner = ports();
    corvid::MessagePortRef port;
    bool isLocal = false;
};

namespace corvid::test {

void setCoreFoundationFolder(const RuntimeFolder& folder) {
    ports() = std::make_shared<Ports>(folder);
}

CoreFoundationRequest lastCoreFoundationRequest() {
    const MutexLock lock(ports()->mutex);
    return ports()->lastRequest;
}

long liveCoreFoundationObjects() {
    return liveObjects;
}

} // namespace corvid::test

void CFRelease(CFTypeRef object) {
    const auto* counted = static_cast<const Object*>(object);
    if (--counted->references == 0) {
        delete counted;
    }
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex size,
                                    CFStringEncoding, Boolean) {
    const std::string_view text(reinterpret_cast<const char*>(bytes),
                                static_cast<std::size_t>(size));
    if (!corvid::isValidUTF8(text)) {
        return nullptr;
    }
    auto* const string = new __CFString;
    string->text = text;
    return string;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex size) {
    auto* const data = new __CFData;
    // An empty buffer is a buffer.
    data->bytes.reserve(static_cast<std::size_t>(size) + 1);
    data->bytes.assign(bytes, bytes + size);
    return data;
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
    return data->bytes.data();
}

CFIndex CFDataGetLength(CFDataRef data) {
    return static_cast<CFIndex>(data->bytes.size());
}

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef name,
                                          CFMessagePortCallBack callback,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo) {
    *shouldFreeInfo = 0;
    const corvid::MutexLock lock(ports()->mutex);
    if (name == nullptr) {
        return new __CFMessagePort; // one that no other process finds
    }
    if (const auto found = ports()->locals.find(name->text); found != ports()->locals.end()) {
        // The port that this process has already, and the context is not needed.
        *shouldFreeInfo = 1;
        ++found->second->references;
        return found->second;
    }
    auto* const local = new __CFMessagePort;
    local->isLocal = true;
    local->port = ports()->service.createLocal(
        name->text,
        [local, callback,
         info = context->info](corvid::MessagePort&, std::int32_t messageID,
                               std::optional<ByteView> data) -> std::optional<Bytes> {
            CFDataRef received = nullptr;
            if (data) {
                received = CFDataCreate(nullptr, data->data(), static_cast<CFIndex>(data->size()));
            }
            CFDataRef const reply = callback(local, messageID, received, info);
            if (received != nullptr) {
                CFRelease(received);
            }
            if (reply == nullptr) {
                return std::nullopt;
            }
            Bytes bytes = reply->bytes;
            CFRelease(reply);
            if (bytes.size() > corvid::kMaxMessageBytes) {
                const corvid::MutexLock oversize(local->owner->mutex);
                local->owner->oversizeReply = std::move(bytes);
                return std::nullopt;
            }
            return bytes;
        });
    if (local->port == nullptr) {
        CFRelease(local);
        return nullptr;
    }
    ports()->locals.emplace(name->text, local);
    return local;
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef name) {
    auto port = ports()->service.createRemote(name->text);
    if (port == nullptr) {
        return nullptr;
    }
    auto* const remote = new __CFMessagePort;
    remote->port = std::move(port);
    return remote;
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 messageID, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval receiveTimeout,
                                CFStringRef replyMode, CFDataRef* returnData) {
    const auto milliseconds = [](CFTimeInterval seconds) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::duration<double>(seconds));
    };
    {
        const corvid::MutexLock lock(remote->owner->mutex);
        remote->owner->lastRequest = {sendTimeout, receiveTimeout,
                                      replyMode != nullptr ? std::optional(replyMode->text)
                                                           : std::nullopt};
    }
    if (data != nullptr && data->bytes.size() > corvid::kMaxMessageBytes) {
        return kCFMessagePortSuccess; // what real ports do; here it goes nowhere
    }
    std::optional<Bytes> reply;
    const auto status = remote->owner->service.sendRequest(
        *remote->port, messageID, data != nullptr ? ByteView(data->bytes) : ByteView(),
        milliseconds(sendTimeout), milliseconds(receiveTimeout),
        replyMode != nullptr ? std::optional<std::string_view>(replyMode->text) : std::nullopt,
        &reply);
    {
        const corvid::MutexLock lock(remote->owner->mutex);
        if (remote->owner->oversizeReply) {
            reply = std::exchange(remote->owner->oversizeReply, std::nullopt);
        }
    }
    if (reply && returnData != nullptr) {
        *returnData = CFDataCreate(nullptr, reply->data(), static_cast<CFIndex>(reply->size()));
    }
    return static_cast<SInt32>(status);
}

void CFMessagePortSetDispatchQueue(CFMessagePortRef port, dispatch_queue_t queue) {
    port->owner->service.setDispatchQueue(*port->port, queue->queue);
}

void CFMessagePortInvalidate(CFMessagePortRef port) {
    if (port->port == nullptr) {
        return;
    }
    if (port->isLocal) {
        const corvid::MutexLock lock(port->owner->mutex);
        const auto found = port->owner->locals.find(port->port->name());
        if (found != port->owner->locals.end() && found->second == port) {
            port->owner->locals.erase(found);
        }
    }
    port->owner->service.invalidate(*port->port);
}
