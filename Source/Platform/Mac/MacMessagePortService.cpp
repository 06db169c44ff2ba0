#include "Platform/Mac/MacMessagePortService.h"

#include "Platform/Mac/MacDispatch.h"

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <future>
#include <memory>
#include <type_traits>
#include <utility>

// Plain C++ on purpose: Core Foundation's objects are owned by the type below, whatever the
// reference counting of the Objective-C sources.

namespace corvid {

namespace {

struct Release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <class Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

constexpr std::size_t kMaximumNameLength = 255;

/// Null when `text` is not UTF-8.
Owned<CFStringRef> makeString(std::string_view text) {
    return Owned<CFStringRef>(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

/// Null when no port can have the name. (Core Foundation takes no name for a port without one.)
Owned<CFStringRef> makeName(std::string_view name) {
    return name.empty() || name.size() > kMaximumNameLength ? nullptr : makeString(name);
}

/// Null for a view of nothing, which is not the same as an empty buffer.
Owned<CFDataRef> makeData(ByteView bytes) {
    if (bytes.data() == nullptr) {
        return nullptr;
    }
    return Owned<CFDataRef>(
        CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
}

Owned<CFDataRef> makeReply(const Bytes& reply) {
    return Owned<CFDataRef>(
        CFDataCreate(kCFAllocatorDefault, reply.data(), static_cast<CFIndex>(reply.size())));
}

ByteView view(CFDataRef data) {
    return {CFDataGetBytePtr(data), static_cast<std::size_t>(CFDataGetLength(data))};
}

CFTimeInterval seconds(std::chrono::milliseconds duration) {
    return std::chrono::duration<CFTimeInterval>(duration).count();
}

class RemotePort final : public MessagePort {
public:
    RemotePort(std::string name, Owned<CFMessagePortRef> port)
        : name_(std::move(name)), port_(std::move(port)) {}

    const std::string& name() const override { return name_; }
    CFMessagePortRef native() const { return port_.get(); }

    /// Of this reference only: Core Foundation may share the port itself among several.
    void invalidate() { isValid_ = false; }
    bool isValid() const { return isValid_; }

private:
    const std::string name_;
    const Owned<CFMessagePortRef> port_;
    std::atomic<bool> isValid_{true};
};

class LocalPort final : public MessagePort {
public:
    /// Null when the system does not give the name to this process.
    static std::shared_ptr<LocalPort> create(std::string_view name, MessagePortCallback callback);

    ~LocalPort() override { invalidate(); }
    LocalPort(const LocalPort&) = delete;
    LocalPort& operator=(const LocalPort&) = delete;

    const std::string& name() const override { return name_; }

    void setDispatchQueue(MacDispatchQueue& queue) {
        queue_ = &queue;
        CFMessagePortSetDispatchQueue(port_.get(), queue.native());
    }

    void invalidate() {
        if (isOpen_.exchange(false)) {
            CFMessagePortInvalidate(port_.get());
        }
        // The queue is serial: behind what runs or waits on it now, nothing of this port is left.
        // A second end waits as well: the first may have come from the callback that still runs.
        if (queue_ != nullptr && !queue_->isCurrent()) {
            std::promise<void> passed;
            queue_->async([&passed] { passed.set_value(); });
            passed.get_future().wait();
        }
    }

private:
    LocalPort(std::string_view name, MessagePortCallback callback)
        : name_(name), callback_(std::move(callback)) {}

    /// The reply, which Core Foundation releases.
    static CFDataRef receive(CFMessagePortRef /*port*/, SInt32 messageID, CFDataRef data,
                             void* info) {
        auto& self = *static_cast<LocalPort*>(info);
        if (!self.isOpen_ || (data != nullptr && view(data).size() > kMaxMessageBytes)) {
            return nullptr;
        }
        const std::optional<Bytes> reply = self.callback_(
            self, messageID, data != nullptr ? std::optional(view(data)) : std::nullopt);
        return reply ? makeReply(*reply).release() : nullptr;
    }

    const std::string name_;
    const MessagePortCallback callback_;
    Owned<CFMessagePortRef> port_;
    MacDispatchQueue* queue_ = nullptr;
    std::atomic<bool> isOpen_{true};
};

std::shared_ptr<LocalPort> LocalPort::create(std::string_view name, MessagePortCallback callback) {
    const Owned<CFStringRef> nativeName = makeName(name);
    if (nativeName == nullptr) {
        return nullptr;
    }
    std::shared_ptr<LocalPort> local(new LocalPort(name, std::move(callback)));
    CFMessagePortContext context{0, local.get(), nullptr, nullptr, nullptr};
    Boolean isAnother = false;
    local->port_.reset(CFMessagePortCreateLocal(kCFAllocatorDefault, nativeName.get(),
                                                &LocalPort::receive, &context, &isAnother));
    if (local->port_ == nullptr || isAnother) {
        // Core Foundation hands out this process's own port when the name is taken by that.
        local->isOpen_ = false;
        return nullptr;
    }
    return local;
}

} // namespace

MessagePortRef MacMessagePortService::createRemote(std::string_view name) {
    const Owned<CFStringRef> nativeName = makeName(name);
    if (nativeName == nullptr) {
        return nullptr;
    }
    Owned<CFMessagePortRef> port(CFMessagePortCreateRemote(kCFAllocatorDefault, nativeName.get()));
    if (port == nullptr) {
        return nullptr;
    }
    return std::make_shared<RemotePort>(std::string(name), std::move(port));
}

PortPresence MacMessagePortService::presenceOf(std::string_view name) {
    return {createRemote(name) != nullptr ? PortPresence::State::served : PortPresence::State::gone,
            {}};
}

SendStatus MacMessagePortService::sendRequest(MessagePort& remote, std::int32_t messageID,
                                              ByteView data, std::chrono::milliseconds sendTimeout,
                                              std::chrono::milliseconds receiveTimeout,
                                              std::optional<std::string_view> replyMode,
                                              std::optional<Bytes>* reply) {
    auto& port = static_cast<RemotePort&>(remote);
    if (!port.isValid()) {
        return SendStatus::isInvalid;
    }
    if (data.size() > kMaxMessageBytes) {
        return SendStatus::transportError;
    }
    const Owned<CFStringRef> mode = replyMode ? makeString(*replyMode) : nullptr;
    CFDataRef received = nullptr;
    const SInt32 status = CFMessagePortSendRequest(port.native(), messageID, makeData(data).get(),
                                                   seconds(sendTimeout), seconds(receiveTimeout),
                                                   mode.get(), replyMode ? &received : nullptr);
    const Owned<CFDataRef> owned(received);
    if (status == kCFMessagePortSuccess && owned != nullptr) {
        const ByteView bytes = view(owned.get());
        if (bytes.size() > kMaxMessageBytes) {
            return SendStatus::transportError;
        }
        if (reply != nullptr) {
            reply->emplace(bytes.begin(), bytes.end());
        }
    }
    return static_cast<SendStatus>(status);
}

MessagePortRef MacMessagePortService::createLocal(std::string_view name,
                                                  MessagePortCallback callback) {
    return LocalPort::create(name, std::move(callback));
}

void MacMessagePortService::setDispatchQueue(MessagePort& local, DispatchQueue& queue) {
    static_cast<LocalPort&>(local).setDispatchQueue(static_cast<MacDispatchQueue&>(queue));
}

void MacMessagePortService::invalidate(MessagePort& port) {
    if (auto* local = dynamic_cast<LocalPort*>(&port)) {
        local->invalidate();
    } else {
        static_cast<RemotePort&>(port).invalidate();
    }
}

} // namespace corvid
