#include "Tests/Support/GNUstep/CoreFoundationDouble.h"

#include "Platform/Unix/UnixMessagePortService.h"
#include "Tests/Support/GNUstep/DispatchQueueDouble.h"

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

// Strings and data that are just that, and message ports that are Unix message ports, so that the
// shell can talk to any host on this machine.

namespace {

std::atomic<long> liveObjects{0};

/// What every object starts with.
struct Object {
    Object() { ++liveObjects; }
    virtual ~Object() { --liveObjects; }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    std::atomic<int> references{1};
};

template <class T>
T* counted(T* object) {
    ++object->references;
    return object;
}

corvid::UnixMessagePortService& service() {
    static corvid::UnixMessagePortService shared;
    return shared;
}

std::chrono::milliseconds milliseconds(CFTimeInterval seconds) {
    return std::chrono::milliseconds(std::lround(seconds * 1000));
}

} // namespace

struct __CFString : Object {
    explicit __CFString(std::string value) : text(std::move(value)) {}
    const std::string text;
};

struct __CFData : Object {
    explicit __CFData(corvid::Bytes value) : bytes(std::move(value)) { bytes.reserve(1); }
    corvid::Bytes bytes; ///< never without memory, however empty
};

struct __CFMessagePort : Object {
    corvid::MessagePortRef port;
};

namespace {

// A name that this process serves already gives the port that serves it.
struct LocalPorts {
    std::mutex mutex;
    std::map<std::string, __CFMessagePort*> byName;
};
LocalPorts& localPorts() {
    static LocalPorts shared;
    return shared;
}

} // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;

void CFRelease(CFTypeRef object) {
    // Every class begins with its Object.
    auto* base = const_cast<Object*>(static_cast<const Object*>(object));
    if (--base->references == 0) {
        delete base;
    }
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef /*allocator*/, const UInt8* bytes,
                                    CFIndex length, CFStringEncoding /*encoding*/,
                                    Boolean /*isExternalRepresentation*/) {
    return new __CFString({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)});
}

CFDataRef CFDataCreate(CFAllocatorRef /*allocator*/, const UInt8* bytes, CFIndex length) {
    return new __CFData(corvid::Bytes(bytes, bytes + length));
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
    return data->bytes.data();
}

CFIndex CFDataGetLength(CFDataRef data) {
    return static_cast<CFIndex>(data->bytes.size());
}

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef /*allocator*/, CFStringRef name,
                                          CFMessagePortCallBack callback,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo) {
    const std::lock_guard lock(localPorts().mutex);
    const auto found = localPorts().byName.find(name->text);
    *shouldFreeInfo = found != localPorts().byName.end();
    if (*shouldFreeInfo) {
        return counted(found->second);
    }
    auto made = std::make_unique<__CFMessagePort>();
    made->port = service().createLocal(
        name->text,
        [callback, self = made.get(), info = context->info](
            corvid::MessagePort& /*port*/, std::int32_t messageID,
            std::optional<corvid::ByteView> data) -> std::optional<corvid::Bytes> {
            CFDataRef payload = nullptr;
            if (data) {
                payload = new __CFData(corvid::Bytes(data->begin(), data->end()));
            }
            CFDataRef reply = callback(self, messageID, payload, info);
            if (payload != nullptr) {
                CFRelease(payload);
            }
            if (reply == nullptr) {
                return std::nullopt;
            }
            corvid::Bytes bytes = reply->bytes;
            CFRelease(reply);
            return bytes;
        });
    if (made->port == nullptr) {
        return nullptr;
    }
    localPorts().byName[name->text] = made.get();
    return made.release();
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef /*allocator*/, CFStringRef name) {
    auto made = std::make_unique<__CFMessagePort>();
    made->port = service().createRemote(name->text);
    return made->port != nullptr ? made.release() : nullptr;
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 messageID, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval receiveTimeout,
                                CFStringRef replyMode, CFDataRef* returnData) {
    std::optional<corvid::Bytes> reply;
    const corvid::SendStatus status = service().sendRequest(
        *remote->port, messageID,
        data != nullptr ? corvid::ByteView(data->bytes) : corvid::ByteView(),
        milliseconds(sendTimeout), milliseconds(receiveTimeout),
        replyMode != nullptr ? std::optional<std::string_view>(replyMode->text) : std::nullopt,
        &reply);
    if (reply && returnData != nullptr) {
        *returnData = new __CFData(std::move(*reply));
    }
    return static_cast<SInt32>(status);
}

void CFMessagePortSetDispatchQueue(CFMessagePortRef port, dispatch_queue_t queue) {
    service().setDispatchQueue(*port->port, queue->queue);
}

void CFMessagePortInvalidate(CFMessagePortRef port) {
    {
        const std::lock_guard lock(localPorts().mutex);
        localPorts().byName.erase(port->port->name());
    }
    service().invalidate(*port->port);
}

namespace corvid {

long liveCoreFoundationObjects() {
    return liveObjects;
}

} // namespace corvid
