#include "Extensions/FileManagers/Link/LinkServer.h"

#include "App/Reporting/CVDDLog.h"
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <type_traits>
#include <utility>

namespace corvid::link {

namespace {

constexpr std::uint64_t kListenerKey = 0;
constexpr std::uint64_t kWakeKey = 1;
constexpr FinderModel::Connection kFirstConnection = 2;

/// Connections taken in at a time, and bytes given to one front end at a time, before the others
/// have their turn.
constexpr int kMaxAcceptedAtOnce = 64;
constexpr std::size_t kMaxSentAtOnce = std::size_t{1024} * 1024;

/// News that comes within this time of the last delivery waits for the rest of it, so that badges
/// answered in a row travel together. The first is never held up.
constexpr std::chrono::milliseconds kDeliveryPause{4};
constexpr std::chrono::seconds kRetryPause{1};
/// Who connects while there is no descriptor for it waits for this time, or until another one goes.
constexpr std::chrono::milliseconds kAcceptPause{250};

/// Makes an eventfd readable.
void count(int fd) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
}

/// Tells the front end that `message` was more than the link carries, where it waits for it.
void refuse(LinkChannel& channel, const Message& message) {
    if (const auto* const menu = std::get_if<MenuReply>(&message)) {
        MenuReply refusal;
        refusal.request = menu->request;
        refusal.outcome = MenuOutcome::tooLarge;
        channel.send(refusal);
    }
}

} // namespace

LinkServer::LinkServer(OwnedFd listener, const VolumeMapping& volume, const SendMonitor& monitor,
                       const Clock& clock, Options options)
    : monitor_(monitor), clock_(clock), options_(std::move(options)),
      listener_(std::move(listener)), epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), finder_(volume, [this] { wake(); }),
      lastConnection_(kFirstConnection - 1) {
    isUsable_ = await(listener_.get(), kListenerKey, EPOLLIN, true) &&
                await(wakeFd_.get(), kWakeKey, EPOLLIN, true);
}

/// False when the system does not watch `fd`.
bool LinkServer::await(int fd, std::uint64_t key, std::uint32_t events, bool isNew) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    return ::epoll_ctl(epoll_.get(), isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd, &event) == 0;
}

void LinkServer::wake() {
    if (!isWoken_.exchange(true)) {
        count(wakeFd_.get());
    }
}

void LinkServer::stop() {
    static_assert(std::atomic<bool>::is_always_lock_free);
    // What the handler's program was doing must not see that a call in it failed.
    const int error = errno;
    isStopped_ = true;
    // Whether another wake is under way cannot be relied on: this may have interrupted it.
    count(wakeFd_.get());
    errno = error;
}

void LinkServer::setProblem(std::string problem) {
    const MutexLock lock(mutex_);
    problem_ = std::move(problem);
}

void LinkServer::listenAt(OwnedFd listener) {
    {
        const MutexLock lock(mutex_);
        nextListener_ = std::move(listener);
    }
    wake();
}

void LinkServer::changeListener() {
    OwnedFd next;
    {
        const MutexLock lock(mutex_);
        next = std::exchange(nextListener_, OwnedFd());
    }
    if (next) {
        acceptSome(); // who found the old one while it was there
        listener_ = std::move(next);
        nextAccept_.reset();
        await(listener_.get(), kListenerKey, EPOLLIN, true);
    }
}

void LinkServer::setVolumeFixed(bool isFixed) {
    const MutexLock lock(mutex_);
    isVolumeFixed_ = isFixed;
}

void LinkServer::setHostProcess(std::function<std::uint32_t()> hostProcess) {
    hostProcess_ = std::move(hostProcess);
}

void LinkServer::run() {
    std::array<epoll_event, 32> events{};
    while (!isStopped_) {
        const int count =
            ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout());
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            if (event.data.u64 == kListenerKey) {
                acceptSome();
            } else if (event.data.u64 == kWakeKey) {
                std::uint64_t ignored = 0;
                [[maybe_unused]] const ssize_t bytes =
                    ::read(wakeFd_.get(), &ignored, sizeof ignored);
                hasNews_ = true;
            } else if (const auto frontEnd =
                           frontEnds_.find(static_cast<FinderModel::Connection>(event.data.u64));
                       frontEnd != frontEnds_.end()) {
                serve(frontEnd, event.events);
            }
        }
        const auto now = clock_.monotonicNow();
        dropLateGreeters(now);
        if (nextAccept_ && now >= *nextAccept_) {
            resumeAccepting();
        }
        if (hasNews_ && now >= nextDelivery_) {
            // Only now: until here whoever had something new found it noted already, and woke
            // nobody.
            isWoken_ = false;
            hasNews_ = false;
            nextDelivery_ = now + kDeliveryPause;
            changeListener();
            deliverAll();
        }
        if (!finder_.isRetrying()) {
            nextRetry_.reset();
        } else if (!nextRetry_) {
            nextRetry_ = now + kRetryPause;
        } else if (now >= *nextRetry_) {
            nextRetry_ = now + kRetryPause;
            finder_.retry();
        }
    }
    while (!frontEnds_.empty()) {
        hangUp(frontEnds_.begin());
    }
    listener_.reset();
}

/// Milliseconds until there is something to do that no descriptor announces; -1 for nothing.
int LinkServer::timeout() const {
    std::optional<std::chrono::steady_clock::time_point> next = nextRetry_;
    const auto include = [&next](std::chrono::steady_clock::time_point time) {
        next = next ? std::min(*next, time) : time;
    };
    if (hasNews_) {
        include(nextDelivery_);
    }
    if (nextAccept_) {
        include(*nextAccept_);
    }
    if (!silent_.empty()) {
        include(frontEnds_.at(*silent_.begin()).greetingDeadline);
    }
    if (!next) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*next - clock_.monotonicNow()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void LinkServer::acceptSome() {
    for (int i = 0; i < kMaxAcceptedAtOnce; ++i) {
        OwnedFd socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket && errno == EAGAIN) {
            return;
        }
        if (!socket && errno != EINTR && errno != ECONNABORTED && !makeRoom()) {
            pauseAccepting();
            return;
        }
        if (!socket || !isOwnPeer(socket.get()) ||
            (frontEnds_.size() >= kMaxFrontEnds && !makeRoom())) {
            continue;
        }
        const auto connection = ++lastConnection_;
        if (!await(socket.get(), connection, EPOLLIN, true)) {
            continue;
        }
        FrontEnd frontEnd{LinkChannel(std::move(socket)),
                          {},
                          EPOLLIN,
                          clock_.monotonicNow() + options_.greetingTime};
        frontEnd.channel.setMaxFrameSize(kMaxGreetingSize);
        frontEnds_.try_emplace(connection, std::move(frontEnd));
        silent_.insert(connection);
    }
}

/// The listener stays ready while nobody can be accepted: it is not looked at meanwhile.
void LinkServer::pauseAccepting() {
    await(listener_.get(), kListenerKey, 0, false);
    nextAccept_ = clock_.monotonicNow() + kAcceptPause;
}

void LinkServer::resumeAccepting() {
    await(listener_.get(), kListenerKey, EPOLLIN, false);
    nextAccept_.reset();
}

/// Ends the connection that has not greeted for longest. False when all have.
bool LinkServer::makeRoom() {
    while (!silent_.empty()) {
        if (endIfSilent(frontEnds_.find(*silent_.begin()))) {
            return true;
        }
    }
    return false;
}

void LinkServer::dropLateGreeters(std::chrono::steady_clock::time_point now) {
    while (!silent_.empty()) {
        const auto oldest = frontEnds_.find(*silent_.begin());
        if (oldest->second.greetingDeadline > now) {
            return;
        }
        endIfSilent(oldest);
    }
}

/// Ends a connection that has not greeted, unless its greeting is there and only has not been read.
/// Whether it has ended.
bool LinkServer::endIfSilent(FrontEnds::iterator frontEnd) {
    const FinderModel::Connection connection = frontEnd->first;
    serve(frontEnd, EPOLLIN);
    const auto still = frontEnds_.find(connection);
    if (still != frontEnds_.end() && silent_.contains(connection)) {
        hangUp(still);
    }
    return !frontEnds_.contains(connection);
}

void LinkServer::serve(FrontEnds::iterator frontEnd, std::uint32_t events) {
    auto& [connection, end] = *frontEnd;
    if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        hangUp(frontEnd);
        return;
    }
    const bool isOpen = (events & EPOLLIN) == 0 || end.channel.receive();
    // What was received before the front end stopped reading is handled once it reads again.
    if ((events & EPOLLOUT) != 0 && !deliver(connection, end)) {
        hangUp(frontEnd);
        return;
    }
    if (!handleWaiting(frontEnd)) {
        end.channel.flush();
        hangUp(frontEnd);
    } else if (!isOpen) {
        hangUp(frontEnd);
    }
}

/// Handles what was received, a piece at a time, for as long as the front end takes what it is
/// told. False when the connection must end.
bool LinkServer::handleWaiting(FrontEnds::iterator frontEnd) {
    auto& [connection, end] = *frontEnd;
    bool hasMore = true;
    while (hasMore && end.channel.unsent() < kMaxUnsent) {
        while (hasMore && end.channel.unsent() < kMaxUnsent) {
            std::optional<Message> message = end.channel.next();
            hasMore = message.has_value();
            if (message && !handle(connection, end, std::move(*message))) {
                return false;
            }
        }
        if (end.channel.isBroken() || !deliver(connection, end)) {
            return false;
        }
    }
    return true;
}

/// False when the connection must end.
bool LinkServer::handle(FinderModel::Connection connection, FrontEnd& frontEnd, Message message) {
    if (const auto* const hello = std::get_if<Hello>(&message)) {
        return greet(connection, frontEnd, *hello);
    }
    if (frontEnd.program.empty()) {
        return false;
    }
    if (const auto* const request = std::get_if<StatusRequest>(&message)) {
        return frontEnd.channel.send(status(request->request));
    }
    if (const auto* const ping = std::get_if<Ping>(&message)) {
        return frontEnd.channel.send(Pong{ping->request});
    }
    return finder_.handle(connection, std::move(message));
}

bool LinkServer::greet(FinderModel::Connection connection, FrontEnd& frontEnd, const Hello& hello) {
    if (!frontEnd.program.empty()) {
        return false;
    }
    const std::uint16_t version = std::min(hello.newestVersion, kNewestVersion);
    if (version < std::max(hello.oldestVersion, kOldestVersion)) {
        Refused refused;
        refused.reason = hello.newestVersion < kOldestVersion
                             ? "The front end is older than the extension: restart it."
                             : "The front end is newer than the extension: restart the extension.";
        frontEnd.channel.send(refused);
        return false;
    }
    frontEnd.program = hello.program.empty() ? "unnamed" : hello.program;
    frontEnd.channel.setMaxFrameSize(kMaxFrameSize);
    silent_.erase(connection);
    frontEnd.channel.send(Welcome{version, options_.pid, options_.programVersion});
    finder_.connect(connection);
    return true;
}

/// Sends what the front end takes. False when it is gone.
bool LinkServer::deliver(FinderModel::Connection connection, FrontEnd& frontEnd) {
    LinkChannel& channel = frontEnd.channel;
    // First what it left: with room again it is given more, however much waits.
    bool isOpen = channel.flush();
    bool hasMore = true;
    std::size_t sent = 0;
    while (isOpen && hasMore && channel.unsent() < kMaxUnsent && sent < kMaxSentAtOnce) {
        const std::size_t before = channel.unsent();
        while (hasMore && channel.unsent() < kMaxUnsent) {
            const std::optional<Message> message = finder_.takeMessage(connection);
            hasMore = message.has_value();
            if (message && !channel.send(*message)) {
                refuse(channel, *message);
            }
        }
        sent += channel.unsent() - before;
        isOpen = channel.flush();
    }
    const std::size_t unsent = channel.unsent();
    const std::uint32_t events =
        (unsent < kMaxUnsent ? EPOLLIN : 0U) | (unsent > 0 || hasMore ? EPOLLOUT : 0U);
    if (events != frontEnd.awaited) {
        frontEnd.awaited = events;
        await(channel.fd(), connection, events, false);
    }
    return isOpen;
}

void LinkServer::deliverAll() {
    for (auto frontEnd = frontEnds_.begin(); frontEnd != frontEnds_.end();) {
        const auto current = frontEnd++;
        // Of one that does not read, epoll tells when it does.
        if (current->second.channel.unsent() < kMaxUnsent &&
            !deliver(current->first, current->second)) {
            hangUp(current);
        }
    }
}

void LinkServer::hangUp(FrontEnds::iterator frontEnd) {
    finder_.disconnect(frontEnd->first);
    silent_.erase(frontEnd->first);
    frontEnds_.erase(frontEnd);
    if (nextAccept_) {
        resumeAccepting();
    }
}

StatusReply LinkServer::status(std::uint32_t request) const {
    StatusReply status;
    status.request = request;
    status.pid = options_.pid;
    status.programVersion = options_.programVersion;
    finder_.addStatus(status);
    if (hostProcess_) {
        status.hostPid = hostProcess_();
    }
    for (const auto& [connection, frontEnd] : frontEnds_) {
        if (!frontEnd.program.empty()) {
            status.frontEnds.push_back(frontEnd.program);
        }
    }
    const SendMonitor::Figures figures = monitor_.figures();
    status.messagesSent = figures.sent;
    status.messagesFailed = figures.failed;
    status.roundTrip = figures.roundTrip;
    status.lastFailure = figures.lastFailure;
    if (!figures.lastFailure.empty()) {
        status.sinceLastFailure = std::chrono::duration_cast<std::chrono::milliseconds>(
            clock_.monotonicNow() - figures.lastFailureTime);
    }
    status.logProblem = CVDDLog::problem();
    const MutexLock lock(mutex_);
    status.problem = problem_;
    status.isVolumeFixed = isVolumeFixed_;
    return status;
}

} // namespace corvid::link
