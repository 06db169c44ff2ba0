#include "Platform/Unix/UnixMessagePortService.h"

#include "Core/Base/Mutex.h"
#include "Platform/Unix/FrameReader.h"
#include "Platform/Unix/FrameWriter.h"
#include "Platform/Unix/MessagePortServer.h"
#include "Platform/Unix/UnixDispatch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <new>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace corvid {

namespace {

// A server that closes connections before they carry anything is either crowded or broken.
constexpr int kMaxConnects = 16;

constexpr std::size_t kReplyScratchBytes = std::size_t{4} << 10U;

/// Somebody else's name, and the connection that found it, until the first send spends it.
class RemotePort final : public MessagePort {
public:
    RemotePort(std::string_view name, std::uint64_t serial) : name_(name), serial_(serial) {}

    const std::string& name() const override { return name_; }

    void keepConnection(OwnedFd connection) {
        const MutexLock lock(mutex_);
        connection_ = std::move(connection);
    }
    /// The connection, when it is still unspent and the latest of the process, as `serial` says:
    /// the receiver puts requests into the order of their connections.
    OwnedFd takeConnection(std::uint64_t serial) {
        const MutexLock lock(mutex_);
        OwnedFd connection = std::exchange(connection_, OwnedFd());
        return serial == serial_ ? std::move(connection) : OwnedFd();
    }
    void invalidate() {
        isValid_ = false;
        takeConnection(0);
    }
    bool isValid() const { return isValid_; }

private:
    std::string name_;
    std::uint64_t serial_;
    std::atomic<bool> isValid_{true};
    Mutex mutex_;
    OwnedFd connection_ CORVID_GUARDED_BY(mutex_);
};

bool waitFor(int fd, short events, const Deadline& deadline) {
    for (;;) {
        pollfd entry{fd, events, 0};
        const std::timespec left = deadline.timespecLeft();
        const int count = ppoll(&entry, 1, &left, nullptr);
        if (count > 0) {
            return true;
        }
        if (count == 0 || errno != EINTR) {
            return false;
        }
    }
}

enum class WriteResult { written, closedBefore, closedDuring, timedOut };

WriteResult writeRequest(int fd, const FrameHeader& header, ByteView data,
                         const Deadline& deadline) {
    FrameWriter writer(header, data);
    while (!writer.isDone()) {
        if (writer.write(fd) >= 0) {
            continue;
        }
        if (errno == EAGAIN) {
            if (!waitFor(fd, POLLOUT, deadline)) {
                return WriteResult::timedOut;
            }
        } else if (errno != EINTR) {
            return writer.hasBegun() ? WriteResult::closedDuring : WriteResult::closedBefore;
        }
    }
    return WriteResult::written;
}

// Waits in recv() itself: to poll first costs a call and a timer more. Takes what is there already
// even when it is too late to wait.
ssize_t receiveWithin(int fd, std::span<std::uint8_t> space, const Deadline& deadline) {
    ssize_t count = -1;
    do {
        const auto left = deadline.left();
        const timeval timeout = Deadline::timevalOf(left);
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        count = recv(fd, space.data(), space.size(), left.count() == 0 ? MSG_DONTWAIT : 0);
    } while (count < 0 && (errno == EAGAIN || errno == EINTR) && !deadline.passed());
    return count;
}

SendStatus readReplyWithMemory(int fd, const FrameHeader& request, const Deadline& deadline,
                               std::optional<Bytes>* reply) {
    int nonBlocking = 0;
    ioctl(fd, FIONBIO, &nonBlocking);
    FrameReader reader;
    std::array<std::uint8_t, kReplyScratchBytes> scratch;
    while (reader.state() != FrameReader::State::complete) {
        const bool isData = reader.state() == FrameReader::State::data;
        const std::span<std::uint8_t> space = isData ? reader.space() : std::span(scratch);
        const ssize_t count = receiveWithin(fd, space, deadline);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return SendStatus::receiveTimeout;
        }
        if (count <= 0) {
            return reader.hasBegun() ? SendStatus::transportError : SendStatus::becameInvalid;
        }
        const auto size = static_cast<std::size_t>(count);
        const FrameReader::State state =
            isData ? reader.received(size) : reader.feed(space.first(size));
        if (state == FrameReader::State::refused || state == FrameReader::State::unreadable) {
            return SendStatus::transportError;
        }
        if (state != FrameReader::State::header &&
            (reader.header().kind != FrameKind::reply || reader.header().number != request.number ||
             reader.header().messageID != request.messageID || reader.header().isRefusal)) {
            return SendStatus::transportError;
        }
    }
    if (reply != nullptr && reader.header().hasData) {
        *reply = reader.takeData();
    }
    return SendStatus::success;
}

// A reply that there is no memory for is lost, as one that is cut short.
SendStatus readReply(int fd, const FrameHeader& request, const Deadline& deadline,
                     std::optional<Bytes>* reply) {
    try {
        return readReplyWithMemory(fd, request, deadline, reply);
    } catch (const std::bad_alloc&) {
        return SendStatus::transportError;
    }
}

} // namespace

UnixMessagePortService::UnixMessagePortService(RuntimeFolder runtimeFolder)
    : folder_(std::move(runtimeFolder)) {}

MessagePortRef UnixMessagePortService::createRemote(std::string_view name) {
    // Made first: from the connection on, the server waits for the request.
    auto port = std::make_shared<RemotePort>(name, ++connects_);
    auto connection = folder_.connect(name, std::nullopt);
    if (connection.result == PortFolder::ConnectResult::absent ||
        connection.result == PortFolder::ConnectResult::failed) {
        return nullptr;
    }
    port->keepConnection(std::move(connection.fd));
    return port;
}

PortPresence UnixMessagePortService::presenceOf(std::string_view name) {
    using State = PortPresence::State;
    auto connection = folder_.connect(name, std::nullopt);
    switch (connection.result) {
    case PortFolder::ConnectResult::absent:
        return {State::gone, {}};
    case PortFolder::ConnectResult::failed:
        return {State::unknown, std::move(connection.problem)};
    case PortFolder::ConnectResult::connected:
    case PortFolder::ConnectResult::timedOut:
        break;
    }
    return {State::served, {}};
}

SendStatus UnixMessagePortService::sendRequest(MessagePort& remote, std::int32_t messageID,
                                               ByteView data, std::chrono::milliseconds sendTimeout,
                                               std::chrono::milliseconds receiveTimeout,
                                               std::optional<std::string_view> replyMode,
                                               std::optional<Bytes>* reply) {
    auto* const port = dynamic_cast<RemotePort*>(&remote);
    if (port == nullptr || !port->isValid()) {
        return SendStatus::isInvalid;
    }
    if (data.size() > kMaxFrameDataBytes) {
        return SendStatus::transportError;
    }
    const Deadline sendDeadline(sendTimeout);
    FrameHeader header;
    header.kind = FrameKind::request;
    header.hasData = data.data() != nullptr;
    header.wantsReply = replyMode.has_value();
    header.messageID = messageID;
    header.number = ++numbers_;
    header.dataBytes = static_cast<std::uint32_t>(data.size());

    // A connection may have been closed before it carries anything: a remote port can be kept for
    // long, and a crowded server gives up the silent ones. Nothing is lost then, so try another.
    OwnedFd fd = port->takeConnection(connects_);
    WriteResult written = WriteResult::closedBefore;
    for (int connects = 0; written == WriteResult::closedBefore; ++connects) {
        if (!fd) {
            if (connects > kMaxConnects) {
                return SendStatus::transportError;
            }
            ++connects_;
            auto connection = folder_.connect(port->name(), sendDeadline);
            if (connection.result != PortFolder::ConnectResult::connected) {
                return connection.result == PortFolder::ConnectResult::timedOut
                           ? SendStatus::sendTimeout
                       : connection.result == PortFolder::ConnectResult::failed
                           ? SendStatus::transportError
                           : SendStatus::isInvalid;
            }
            fd = std::move(connection.fd);
        }
        written = writeRequest(fd.get(), header, data, sendDeadline);
        if (written == WriteResult::closedBefore) {
            fd.reset();
        }
    }
    if (written != WriteResult::written) {
        return written == WriteResult::timedOut ? SendStatus::sendTimeout
                                                : SendStatus::becameInvalid;
    }
    if (!replyMode) {
        return SendStatus::success;
    }
    return readReply(fd.get(), header, Deadline(receiveTimeout), reply);
}

MessagePortRef UnixMessagePortService::createLocal(std::string_view name,
                                                   MessagePortCallback callback) {
    auto listener = folder_.take(name);
    if (!listener) {
        return nullptr;
    }
    auto port = std::make_shared<LocalMessagePort>(std::string(name), std::move(*listener),
                                                   std::move(callback));
    folder_.addHolder(port);
    MessagePort* const handle = port.get();
    // The server shares the port, so it is the owner's reference that invalidates it.
    return {handle, [port = std::move(port)](MessagePort*) { port->invalidate(); }};
}

void UnixMessagePortService::setDispatchQueue(MessagePort& local, DispatchQueue& queue) {
    dynamic_cast<LocalMessagePort&>(local).setDispatchQueue(
        dynamic_cast<UnixDispatchQueue&>(queue));
}

void UnixMessagePortService::invalidate(MessagePort& port) {
    if (auto* const local = dynamic_cast<LocalMessagePort*>(&port)) {
        local->invalidate();
    } else if (auto* const remote = dynamic_cast<RemotePort*>(&port)) {
        remote->invalidate();
    }
}

} // namespace corvid
