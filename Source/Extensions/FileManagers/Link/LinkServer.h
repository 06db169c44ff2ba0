#pragma once

#include "Extensions/FileManagers/Link/FinderRole.h"
#include "Extensions/FileManagers/Link/LinkChannel.h"
#include "Extensions/FileManagers/Link/SendMonitor.h"
#include "Platform/Interfaces/Clock.h"
#include "Platform/Unix/OwnedFd.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace corvid::link {

/// The extension's end of the Finder link: serves every front end on one thread, between the
/// sockets and a FinderRole. It wakes up for what happens, and for nothing else.
class LinkServer {
public:
    /// Connections at a time. When there are more, that goes which has not greeted for longest;
    /// when all have, a new one is hung up on.
    static constexpr std::size_t kMaxFrontEnds = 256;
    /// A front end that leaves this much unread is neither read from nor given more, until it
    /// reads. One message of kMaxFrameSize may come on top.
    static constexpr std::size_t kMaxUnsent = std::size_t{256} * 1024;

    struct Options {
        std::string programVersion;
        std::uint32_t pid = 0;
        /// Within this time of its connection a front end has to greet.
        std::chrono::milliseconds greetingTime{5000};
    };

    /// Serves `volume` at `listener`, a listening socket. `monitor` and `clock` must outlive this.
    LinkServer(OwnedFd listener, const VolumeMapping& volume, const SendMonitor& monitor,
               const Clock& clock, Options options);

    /// False when the system had no descriptor left for this; then run() must not be called.
    bool isUsable() const { return isUsable_; }

    /// What plays the file manager; owned by this.
    FinderRole& finder() { return finder_; }

    /// How to learn the host's process, 0 when there is none, for the status. Before run().
    void setHostProcess(std::function<std::uint32_t()> hostProcess);

    /// Serves front ends until stop(). The extension is started and stopped by others, through
    /// finder(), before and after.
    void run();
    /// Makes run() return. Any thread, and a signal handler: it does nothing but what may be done
    /// there, and leaves `errno` alone.
    void stop();

    /// Serves at `listener` from now on; front ends that are connected stay. Any thread.
    void listenAt(OwnedFd listener);

    /// What is set up wrongly, as a sentence for the status; empty for nothing. And whether the
    /// volume was named to the extension itself. Any thread.
    void setProblem(std::string problem);
    void setVolumeFixed(bool isFixed);

private:
    struct FrontEnd {
        LinkChannel channel;
        std::string program;       ///< empty before the greeting
        std::uint32_t awaited = 0; ///< the events that epoll is set to
        std::chrono::steady_clock::time_point greetingDeadline;
    };
    using FrontEnds = std::map<FinderModel::Connection, FrontEnd>;

    void wake();
    bool await(int fd, std::uint64_t key, std::uint32_t events, bool isNew);
    void acceptSome();
    void pauseAccepting();
    void resumeAccepting();
    bool makeRoom();
    bool endIfSilent(FrontEnds::iterator frontEnd);
    void dropLateGreeters(std::chrono::steady_clock::time_point now);
    void changeListener();
    void serve(FrontEnds::iterator frontEnd, std::uint32_t events);
    bool handleWaiting(FrontEnds::iterator frontEnd);
    bool handle(FinderModel::Connection connection, FrontEnd& frontEnd, Message message);
    bool greet(FinderModel::Connection connection, FrontEnd& frontEnd, const Hello& hello);
    bool deliver(FinderModel::Connection connection, FrontEnd& frontEnd);
    void deliverAll();
    void hangUp(FrontEnds::iterator frontEnd);
    StatusReply status(std::uint32_t request) const;
    int timeout() const;

    const SendMonitor& monitor_;
    const Clock& clock_;
    const Options options_;
    std::function<std::uint32_t()> hostProcess_;
    OwnedFd listener_;
    OwnedFd epoll_;
    OwnedFd wakeFd_;
    std::atomic<bool> isWoken_{false};
    std::atomic<bool> isStopped_{false};
    mutable Mutex mutex_;
    std::string problem_ CORVID_GUARDED_BY(mutex_);
    OwnedFd nextListener_ CORVID_GUARDED_BY(mutex_);
    bool isVolumeFixed_ CORVID_GUARDED_BY(mutex_) = false;

    FinderRole finder_;
    FrontEnds frontEnds_;
    /// Those that have not greeted, oldest first, which is by their deadlines.
    std::set<FinderModel::Connection> silent_;
    bool isUsable_ = false;
    FinderModel::Connection lastConnection_ = 0;
    bool hasNews_ = false;
    std::chrono::steady_clock::time_point nextDelivery_{};
    std::optional<std::chrono::steady_clock::time_point> nextRetry_;
    /// When to accept again after the system had nothing left for it.
    std::optional<std::chrono::steady_clock::time_point> nextAccept_;
};

} // namespace corvid::link
