#include "Platform/Unix/MessagePortServer.h"

#include "Platform/Unix/FrameWriter.h"
#include "Platform/Unix/UnixDispatch.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace corvid {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t kMaxConnections = 64;

// What a peer may take, in all, to write its request, or to read its reply.
constexpr std::chrono::seconds kPatience{5};

// What a connection is given when others wait for its place or its memory: a moment, and the time
// that what it has sent or read so far takes at this pace. The sender of a small request has sent
// it all before it is accepted, and who sends much has a second for all of it. So whoever does
// his part as fast as he can keeps his place on a busy machine too, while 64 places pass on 6,400
// times a second from peers that do nothing.
constexpr std::chrono::milliseconds kMomentInACrowd{10};
constexpr std::size_t kPaceInACrowd = std::size_t{8} << 20U; // bytes a second

// Above what a socket holds (net.core.wmem_default), so that the sender of a large request is
// still there while the request waits for memory.
constexpr std::size_t kLargeBytes = std::size_t{256} << 10U;
constexpr std::size_t kMaxLargeBytes = 2 * kMaxFrameDataBytes;

// A busy sender gets its turn again in the next round.
constexpr std::size_t kMaxBytesPerRound = std::size_t{4} << 20U;

constexpr std::size_t kScratchBytes = std::size_t{16} << 10U;

constexpr std::chrono::milliseconds kPauseWithoutDescriptors{50};

// Between its connect() and its send() a sender needs much less, unless it is interrupted. A socket
// counts in ticks of the system's clock, so one tick is the least there is.
constexpr timeval kMomentBeforeRequest{0, 1};

} // namespace

struct MessagePortServer::Connection final : EventSource {
    enum class Phase { reading, waitingForMemory, complete, writing, dropped };

    Connection(MessagePortServer& owner, OwnedFd socket, LocalMessagePort& target, pid_t pid)
        : server(owner), fd(std::move(socket)), port(target.shared_from_this()), peer(pid) {}

    void onEvents(std::uint32_t) override { server.onConnectionEvents(*this); }

    bool isSilent() const { return phase == Phase::reading && !reader.hasBegun(); }

    bool waitsForPeer() const { return phase == Phase::reading || phase == Phase::writing; }

    /// When it is behind the pace that it has to keep in a crowd.
    steady_clock::time_point behindAt() const {
        const std::size_t bytes =
            phase == Phase::writing ? writer.writtenBytes() : reader.takenBytes();
        return pacedSince + kMomentInACrowd +
               std::chrono::microseconds(bytes * 1'000'000 / kPaceInACrowd);
    }

    MessagePortServer& server;
    ForkClosedFd fd;
    std::shared_ptr<LocalMessagePort> port;
    pid_t peer;
    Phase phase = Phase::reading;
    steady_clock::time_point since = steady_clock::now(); ///< of the phase
    steady_clock::time_point pacedSince = since; ///< later, when it had to wait for this side
    std::uint32_t watchedEvents = 0;
    FrameReader reader;
    std::size_t largeBytes = 0;
    Bytes reply;
    FrameWriter writer; ///< of the reply
};

namespace {

PortFolder::Place placeOf(const PortFolder::Listener& listener) {
    return {listener.file, listener.inode, listener.device};
}

void setNonBlocking(const ForkClosedFd& fd, bool isNonBlocking) {
    int value = isNonBlocking ? 1 : 0;
    ioctl(fd.get(), FIONBIO, &value);
}

} // namespace

LocalMessagePort::LocalMessagePort(std::string name, PortFolder::Listener listener,
                                   MessagePortCallback callback)
    : name_(std::move(name)), callback_(std::move(callback)), process_(getpid()),
      place_(placeOf(listener)) {
    useListener(std::move(listener));
}

LocalMessagePort::~LocalMessagePort() = default;

void LocalMessagePort::setDispatchQueue(UnixDispatchQueue& queue) {
    {
        const MutexLock lock(mutex_);
        if (!isValid_ || queue_ != nullptr) {
            return;
        }
        queue_ = &queue;
    }
    queue.async([self = shared_from_this(), &queue]() mutable {
        queue.messagePorts().add(std::move(self));
    });
}

void LocalMessagePort::invalidate() {
    // In a forked child the queue has no thread, and the name is the parent's.
    if (process_ != getpid()) {
        return;
    }
    UnixDispatchQueue* queue = nullptr;
    bool wasValid = false;
    {
        const MutexLock lock(mutex_);
        wasValid = std::exchange(isValid_, false);
        queue = queue_;
    }
    if (queue == nullptr) {
        if (wasValid) {
            PortFolder::release(listener_);
        }
        return;
    }
    // Also when another thread has begun it and waits for the queue: who returns from here may rely
    // on it.
    queue->sync([this] {
        if (server_ != nullptr) {
            server_->remove(*this);
        }
        PortFolder::release(listener_);
        if (!isCalling_) {
            forgetQueue();
        }
    });
}

void LocalMessagePort::useListener(PortFolder::Listener listener) {
    interrupter_.startAnew();
    listener_ = std::move(listener);
    // The server waits in accept(), or calls it when somebody is there: nobody else takes them.
    setNonBlocking(listener_.fd, false);
}

// Under the lock throughout: the name must not be taken again once the port is invalid.
std::string LocalMessagePort::keepName(PortFolder& folder) {
    const MutexLock lock(mutex_);
    if (!isValid_ || process_ != getpid() || (place_ && folder.leadsTo(*place_))) {
        return {};
    }
    PortFolder::Taken taken = folder.tryToTake(name_);
    if (taken.listener) {
        place_ = placeOf(*taken.listener);
        changeListener(std::move(*taken.listener));
        return {};
    }
    if (!taken.isAnothers) {
        return taken.problem;
    }
    if (std::exchange(place_, std::nullopt)) {
        changeListener({});
    }
    return "the socket of the port " + name_ + " was removed, and process " +
           std::to_string(taken.owner) + " has taken its name since; end one of the two";
}

void LocalMessagePort::changeListener(PortFolder::Listener listener) {
    if (queue_ == nullptr) {
        PortFolder::release(listener_);
        useListener(std::move(listener));
        return;
    }
    queue_->async([self = shared_from_this(),
                   next = std::make_shared<PortFolder::Listener>(std::move(listener))] {
        if (self->server_ != nullptr) {
            self->server_->changeListener(*self, std::move(*next));
        } else {
            PortFolder::release(*next); // The port has become invalid meanwhile.
        }
    });
}

// It may go before this port, but not before the last callback has returned: until then whoever
// ends the port waits on it.
void LocalMessagePort::forgetQueue() {
    const MutexLock lock(mutex_);
    queue_ = nullptr;
}

void LocalMessagePort::onEvents(std::uint32_t) {
    server_->accept(*this);
}

bool LocalMessagePort::prepareToWait() {
    return interrupter_.prepare();
}

void LocalMessagePort::waitAndServe() {
    server_->accept(*this);
}

void LocalMessagePort::interrupt() {
    interrupter_.interrupt();
}

MessagePortServer::MessagePortServer(EventLoop& loop)
    : loop_(loop), user_(geteuid()), scratch_(kScratchBytes) {}

MessagePortServer::~MessagePortServer() = default;

void MessagePortServer::add(std::shared_ptr<LocalMessagePort> port) {
    port->server_ = this;
    if (isListening_ && port->listener_.fd) {
        loop_.watch(port->listener_.fd.get(), EPOLLIN, *port);
    }
    ports_.push_back(std::move(port));
}

void MessagePortServer::remove(LocalMessagePort& port) {
    port.server_ = nullptr;
    loop_.unwatch(port.listener_.fd.get(), port);
    dropRequestsOf(port);
    std::erase_if(ports_, [&](const auto& candidate) { return candidate.get() == &port; });
    tidy();
}

void MessagePortServer::dropRequestsOf(const LocalMessagePort& port) {
    for (const auto& connection : connections_) {
        if (connection->port.get() == &port && connection->phase != Connection::Phase::writing) {
            drop(*connection);
        }
    }
}

void MessagePortServer::changeListener(LocalMessagePort& port, PortFolder::Listener listener) {
    loop_.unwatch(port.listener_.fd.get(), port);
    if (!listener.fd) {
        dropRequestsOf(port);
    } else if (port.listener_.fd) {
        // They found the old socket while it had the name. There are no more than its backlog
        // holds, so that nobody need wait for a place.
        setNonBlocking(port.listener_.fd, true);
        while (OwnedFd fd{accept4(port.listener_.fd.get(), nullptr, nullptr, SOCK_CLOEXEC)}) {
            admit(port, std::move(fd));
        }
    }
    PortFolder::release(port.listener_);
    port.useListener(std::move(listener));
    if (isListening_ && port.listener_.fd) {
        loop_.watch(port.listener_.fd.get(), EPOLLIN, port);
    }
    onRoundEnd();
}

// One a round: who waits behind it is reported again, so that every source has its turn.
void MessagePortServer::accept(LocalMessagePort& port) {
    loop_.atRoundEnd(*this);
    if (openCount_ >= kMaxConnections && !makeRoom()) {
        isCrowded_ = true;
        listen(false);
        return;
    }
    // Blocking: each call says for itself whether it waits.
    OwnedFd fd(accept4(port.listener_.fd.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!fd) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            // Who waits in the kernel is served when there are descriptors again: once one of
            // these connections ends, or the rest of the process has closed some.
            listen(false);
            listenAgain_ = steady_clock::now() + kPauseWithoutDescriptors;
            port.interrupter_.giveUp();
        } else if (errno == EINVAL) {
            loop_.unwatch(port.listener_.fd.get(), port); // The interrupter has shut it down.
        }
        return;
    }
    // The usual case is one sender, which has connected and is about to write. To wait that moment
    // costs less than to have the loop tell of it. With others to serve, nobody waits for one.
    Connection* const connection = admit(port, std::move(fd));
    if (connection != nullptr && openCount_ == 1 && connection->isSilent()) {
        setsockopt(connection->fd.get(), SOL_SOCKET, SO_RCVTIMEO, &kMomentBeforeRequest,
                   sizeof kMomentBeforeRequest);
        read(*connection, Wait::oneMoment);
    }
}

// Reads what there is. Null for a stranger, who gets nothing.
MessagePortServer::Connection* MessagePortServer::admit(LocalMessagePort& port, OwnedFd fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != user_) {
        return nullptr;
    }
    connections_.push_back(std::make_unique<Connection>(*this, std::move(fd), port, peer.pid));
    ++openCount_;
    Connection* const connection = connections_.back().get();
    read(*connection, Wait::no);
    return connection;
}

void MessagePortServer::listen(bool on) {
    if (on == isListening_) {
        return;
    }
    isListening_ = on;
    isCrowded_ = isCrowded_ && !on;
    for (const auto& port : ports_) {
        if (on && port->listener_.fd) {
            loop_.watch(port->listener_.fd.get(), EPOLLIN, *port);
        } else if (!on) {
            loop_.unwatch(port->listener_.fd.get(), *port);
        }
    }
}

// Gives up the connection that has said nothing for the longest time; its sender connects again
// when it has something to say. Without one, gives up the one that is behind the pace most.
bool MessagePortServer::makeRoom() {
    for (const auto& connection : connections_) {
        if (connection->isSilent()) {
            retire(*connection);
            if (connection->phase == Connection::Phase::dropped) {
                return true;
            }
        }
    }
    const auto now = steady_clock::now();
    for (;;) {
        Connection* const last = mostBehind(false);
        if (last == nullptr || last->behindAt() > now) {
            return false;
        }
        // It may have done its part meanwhile.
        if (last->waitsForPeer()) {
            last->phase == Connection::Phase::writing ? write(*last) : read(*last);
        }
        if (last->phase != Connection::Phase::complete && last->behindAt() <= now) {
            drop(*last);
        }
        if (last->phase == Connection::Phase::dropped) {
            return true;
        }
    }
}

// Has the connections give up memory that are behind the pace, until `bytes` more can be had.
bool MessagePortServer::makeMemory(std::size_t bytes) {
    const auto now = steady_clock::now();
    while (largeBytes_ + bytes > kMaxLargeBytes) {
        Connection* const last = mostBehind(true);
        if (last == nullptr || last->behindAt() > now) {
            return false;
        }
        drop(*last);
    }
    return true;
}

MessagePortServer::Connection* MessagePortServer::mostBehind(bool ofThoseWithMemory) const {
    Connection* last = nullptr;
    for (const auto& connection : connections_) {
        const bool counts = ofThoseWithMemory
                                ? connection->largeBytes > 0 && connection->waitsForPeer()
                                : connection->waitsForPeer() ||
                                      connection->phase == Connection::Phase::waitingForMemory;
        if (counts && (last == nullptr || connection->behindAt() < last->behindAt())) {
            last = connection.get();
        }
    }
    return last;
}

// While this side is busy with others, nobody falls behind.
void MessagePortServer::forgiveTimeSince(steady_clock::time_point start) {
    const auto time = steady_clock::now() - start;
    for (const auto& connection : connections_) {
        connection->pacedSince += time;
    }
}

// Closes a connection to its sender's knowledge, and takes what was sent before.
void MessagePortServer::retire(Connection& connection) {
    shutdown(connection.fd.get(), SHUT_RD);
    read(connection);
}

void MessagePortServer::onConnectionEvents(Connection& connection) {
    loop_.atRoundEnd(*this);
    if (connection.phase == Connection::Phase::writing) {
        write(connection);
    } else {
        read(connection);
    }
}

void MessagePortServer::read(Connection& connection, Wait wait) {
    using State = FrameReader::State;
    FrameReader& reader = connection.reader;
    std::size_t readBytes = 0;
    while (connection.phase == Connection::Phase::reading && readBytes < kMaxBytesPerRound) {
        const bool isData = reader.state() == State::data;
        std::span<std::uint8_t> space(scratch_);
        if (isData) {
            if (!reserveLarge(connection)) {
                return;
            }
            try {
                space = reader.space();
            } catch (const std::bad_alloc&) {
                drop(connection);
                return;
            }
        }
        const ssize_t count = recv(connection.fd.get(), space.data(), space.size(),
                                   wait == Wait::oneMoment ? 0 : MSG_DONTWAIT);
        wait = Wait::no;
        if (count <= 0) {
            if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
                drop(connection);
            }
            return;
        }
        const auto size = static_cast<std::size_t>(count);
        readBytes += size;
        State state = State::refused;
        try {
            state = isData ? reader.received(size) : reader.feed(space.first(size));
        } catch (const std::bad_alloc&) {
            drop(connection);
            return;
        }
        if (state == State::unreadable && reader.header().kind == FrameKind::request &&
            reader.header().wantsReply) {
            reply(connection, true, std::nullopt);
        } else if (state == State::unreadable || state == State::refused ||
                   (state != State::header && reader.header().kind != FrameKind::request)) {
            drop(connection);
        } else if (state == State::complete) {
            connection.phase = Connection::Phase::complete;
            hasComplete_ = true;
        }
    }
}

bool MessagePortServer::reserveLarge(Connection& connection) {
    const std::size_t bytes = connection.reader.header().dataBytes;
    if (bytes <= kLargeBytes || connection.largeBytes > 0) {
        return true;
    }
    // It is not among those that give up memory, since it has none.
    if (largeBytes_ + bytes > kMaxLargeBytes && !makeMemory(bytes)) {
        connection.phase = Connection::Phase::waitingForMemory;
        watch(connection, 0);
        return false;
    }
    connection.pacedSince = steady_clock::now();
    connection.largeBytes = bytes;
    largeBytes_ += bytes;
    return true;
}

void MessagePortServer::releaseLarge(Connection& connection) {
    if (connection.largeBytes == 0) {
        return;
    }
    largeBytes_ -= std::exchange(connection.largeBytes, 0);
    for (const auto& waiting : connections_) {
        if (waiting->phase == Connection::Phase::waitingForMemory) {
            waiting->phase = Connection::Phase::reading;
            watch(*waiting, EPOLLIN);
        }
    }
}

void MessagePortServer::onRoundEnd() {
    if (hasComplete_) {
        isInRound_ = true;
        hasComplete_ = false;
        readPredecessors();
        const bool othersWait = connections_.size() > 1;
        const auto start = othersWait ? steady_clock::now() : steady_clock::time_point();
        // In the order of the connections. None is added meanwhile.
        for (const auto& connection : connections_) {
            if (connection->phase == Connection::Phase::complete) {
                answer(*connection);
            }
        }
        if (othersWait) {
            forgiveTimeSince(start);
        }
        isInRound_ = false;
    }
    tidy();
}

// A sender connects for a request when it has sent all of the one before, so that the older
// connections of the sender of a complete request now yield theirs.
void MessagePortServer::readPredecessors() {
    if (connections_.size() == 1) {
        return;
    }
    std::vector<pid_t> senders;
    for (auto next = connections_.rbegin(); next != connections_.rend(); ++next) {
        Connection& connection = **next;
        const bool isOfSender =
            std::find(senders.begin(), senders.end(), connection.peer) != senders.end();
        if (connection.phase == Connection::Phase::complete && !isOfSender) {
            senders.push_back(connection.peer);
        } else if (connection.phase == Connection::Phase::reading && isOfSender) {
            read(connection);
        }
    }
}

void MessagePortServer::answer(Connection& connection) {
    const FrameHeader& header = connection.reader.header();
    const Bytes data = connection.reader.takeData();
    // Kept by the connection, port and callback outlive a removal by the callback, and so does
    // the reply.
    LocalMessagePort& port = *connection.port;
    connection.phase = Connection::Phase::writing;
    port.isCalling_ = true;
    auto answer = port.callback_(port, header.messageID,
                                 header.hasData ? std::optional<ByteView>(data) : std::nullopt);
    port.isCalling_ = false;
    if (port.server_ == nullptr) {
        port.forgetQueue();
    }
    releaseLarge(connection);
    if (!header.wantsReply) {
        drop(connection);
    } else {
        const bool isTooLarge = answer && answer->size() > kMaxFrameDataBytes;
        reply(connection, isTooLarge, isTooLarge ? std::nullopt : std::move(answer));
    }
}

void MessagePortServer::reply(Connection& connection, bool isRefusal, std::optional<Bytes> data) {
    const FrameHeader& request = connection.reader.header();
    FrameHeader header;
    header.kind = FrameKind::reply;
    header.hasData = data.has_value();
    header.isRefusal = isRefusal;
    header.messageID = request.messageID;
    header.number = request.number;
    header.dataBytes = data ? static_cast<std::uint32_t>(data->size()) : 0;
    connection.reply = data ? std::move(*data) : Bytes();
    connection.writer = FrameWriter(header, connection.reply);
    connection.phase = Connection::Phase::writing;
    write(connection);
    if (connection.phase != Connection::Phase::writing) {
        return;
    }
    connection.since = connection.pacedSince = steady_clock::now();
    if (connection.reply.size() > kLargeBytes) {
        connection.largeBytes = connection.reply.size();
        largeBytes_ += connection.largeBytes;
        // The callback has made the reply already: the bound is kept at the cost of the peer that
        // has been reading its own for the longest time.
        for (const auto& oldest : connections_) {
            if (largeBytes_ <= kMaxLargeBytes) {
                break;
            }
            if (oldest->phase == Connection::Phase::writing && oldest->largeBytes > 0) {
                drop(*oldest);
            }
        }
    }
}

void MessagePortServer::write(Connection& connection) {
    while (!connection.writer.isDone()) {
        if (connection.writer.write(connection.fd.get()) >= 0 || errno == EINTR) {
            continue;
        }
        if (errno == EAGAIN) {
            watch(connection, EPOLLOUT);
            return;
        }
        break;
    }
    drop(connection);
}

void MessagePortServer::watch(Connection& connection, std::uint32_t events) {
    if (connection.watchedEvents == events) {
        return;
    }
    if (connection.watchedEvents != 0) {
        loop_.unwatch(connection.fd.get(), connection);
    }
    connection.watchedEvents = events;
    if (events != 0) {
        loop_.watch(connection.fd.get(), events, connection);
    }
}

void MessagePortServer::drop(Connection& connection) {
    if (connection.phase == Connection::Phase::dropped) {
        return;
    }
    watch(connection, 0);
    connection.phase = Connection::Phase::dropped;
    connection.fd.reset();
    connection.reply = Bytes();
    --openCount_;
    listenAgain_.reset(); // There is a descriptor again.
    releaseLarge(connection);
}

// Between two rounds: frees what was dropped, and watches what is left.
void MessagePortServer::tidy() {
    if (isInRound_) {
        return;
    }
    std::erase_if(connections_, [](const auto& connection) {
        return connection->phase == Connection::Phase::dropped;
    });
    std::optional<steady_clock::time_point> next = listenAgain_;
    const auto wakeAt = [&](steady_clock::time_point moment) {
        next = next ? std::min(*next, moment) : moment;
    };
    bool memoryIsAwaited = false;
    for (const auto& connection : connections_) {
        if (connection->phase == Connection::Phase::reading) {
            watch(*connection, EPOLLIN);
        }
        memoryIsAwaited |= connection->phase == Connection::Phase::waitingForMemory;
        wakeAt(connection->since + kPatience);
    }
    if (const auto* const last = isCrowded_ ? mostBehind(false) : nullptr) {
        wakeAt(last->behindAt());
    }
    if (const auto* const last = memoryIsAwaited ? mostBehind(true) : nullptr) {
        wakeAt(last->behindAt());
    }
    if (openCount_ < kMaxConnections && !listenAgain_) {
        listen(true);
    }
    loop_.setTimer(*this, next);
}

void MessagePortServer::onTimer() {
    loop_.atRoundEnd(*this);
    const auto now = steady_clock::now();
    if (listenAgain_ && *listenAgain_ <= now) {
        listenAgain_.reset();
    }
    for (const auto& connection : connections_) {
        if (connection->since + kPatience > now) {
            continue;
        }
        if (connection->isSilent()) {
            retire(*connection);
        } else if (connection->phase != Connection::Phase::complete) {
            drop(*connection);
        }
    }
    // Who waits is looked for once somebody can make room.
    const Connection* const last = mostBehind(false);
    if (isCrowded_ && !listenAgain_ && last != nullptr && last->behindAt() <= now) {
        listen(true);
    }
    for (const auto& connection : connections_) {
        if (connection->phase == Connection::Phase::waitingForMemory) {
            makeMemory(connection->reader.header().dataBytes);
            break;
        }
    }
}

} // namespace corvid
