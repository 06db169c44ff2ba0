#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/MessagePortService.h"
#include "Platform/Unix/AcceptInterrupter.h"
#include "Platform/Unix/EventLoop.h"
#include "Platform/Unix/ForkClosedFd.h"
#include "Platform/Unix/FrameReader.h"
#include "Platform/Unix/PortFolder.h"

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvid {

class MessagePortServer;
class UnixDispatchQueue;

/// A name of this process and the callback behind it.
class LocalMessagePort final : public MessagePort,
                               public NameHolder,
                               public SoleSource,
                               public std::enable_shared_from_this<LocalMessagePort> {
public:
    LocalMessagePort(std::string name, PortFolder::Listener listener, MessagePortCallback callback);
    ~LocalMessagePort() override;

    const std::string& name() const override { return name_; }

    /// As MessagePortService has them. Any thread.
    void setDispatchQueue(UnixDispatchQueue& queue);
    void invalidate();

    std::string keepName(PortFolder& folder) override;

private:
    friend class MessagePortServer;
    void changeListener(PortFolder::Listener listener) CORVID_REQUIRES(mutex_);
    void useListener(PortFolder::Listener listener);
    void onEvents(std::uint32_t events) override;
    bool prepareToWait() override;
    void waitAndServe() override;
    void interrupt() override;
    void forgetQueue();

    std::string name_;
    MessagePortCallback callback_;
    pid_t process_;
    Mutex mutex_;
    bool isValid_ CORVID_GUARDED_BY(mutex_) = true;
    UnixDispatchQueue* queue_ CORVID_GUARDED_BY(mutex_) = nullptr;
    /// Of the newest listener; nothing while another process has the name.
    std::optional<PortFolder::Place> place_ CORVID_GUARDED_BY(mutex_);
    // On the queue once there is one.
    PortFolder::Listener listener_;
    AcceptInterrupter interrupter_{listener_};
    MessagePortServer* server_ = nullptr;
    bool isCalling_ = false;
};

/// Serves the ports of one queue: accepts connections, reads one request from each, runs the
/// callbacks in the order of the connections, writes the replies.
///
/// Everything a sender can take is bounded, and a sender over a bound waits in the kernel, within
/// its own deadlines: connections at a time, memory for large requests and replies, the time that
/// a connection may stay without doing its part. When others wait, a connection that is behind the
/// pace makes room for them much earlier. On the queue's thread, but for the constructor
/// and the destructor (which runs when that thread has ended).
class MessagePortServer final : public EventSource {
public:
    explicit MessagePortServer(EventLoop& loop);
    ~MessagePortServer() override;

    /// Begins to serve `port`. It is kept until remove().
    void add(std::shared_ptr<LocalMessagePort> port);
    /// No callback of `port` starts after this. Its requests that wait are dropped.
    void remove(LocalMessagePort& port);

    /// Serves `port` at `listener` from now on, having taken all who wait at the one before. One
    /// without a socket serves nobody, and the requests of `port` that wait are dropped.
    void changeListener(LocalMessagePort& port, PortFolder::Listener listener);

private:
    friend class LocalMessagePort;
    struct Connection;

    void onRoundEnd() override;
    void onTimer() override;
    void onConnectionEvents(Connection& connection);

    void accept(LocalMessagePort& port);
    Connection* admit(LocalMessagePort& port, OwnedFd fd);
    void dropRequestsOf(const LocalMessagePort& port);
    void listen(bool on);
    bool makeRoom();
    bool makeMemory(std::size_t bytes);
    Connection* mostBehind(bool ofThoseWithMemory) const;
    void forgiveTimeSince(std::chrono::steady_clock::time_point start);
    enum class Wait { no, oneMoment };
    void read(Connection& connection, Wait wait = Wait::no);
    bool reserveLarge(Connection& connection);
    void releaseLarge(Connection& connection);
    void readPredecessors();
    void answer(Connection& connection);
    void reply(Connection& connection, bool isRefusal, std::optional<Bytes> data);
    void write(Connection& connection);
    void retire(Connection& connection);
    void drop(Connection& connection);
    void watch(Connection& connection, std::uint32_t events);
    void tidy();

    EventLoop& loop_;
    const uid_t user_;
    std::vector<std::shared_ptr<LocalMessagePort>> ports_;
    std::list<std::unique_ptr<Connection>> connections_; ///< oldest first
    std::size_t openCount_ = 0;                          ///< connections that are not dropped
    std::size_t largeBytes_ = 0; ///< announced by large requests, held by large replies
    bool isListening_ = true;
    bool isCrowded_ = false;   ///< somebody waits in the kernel for a connection to end
    bool hasComplete_ = false; ///< a request of this round
    bool isInRound_ = false;
    std::optional<std::chrono::steady_clock::time_point> listenAgain_;
    std::vector<std::uint8_t> scratch_;
};

} // namespace corvid
