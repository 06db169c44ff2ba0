#include "Tools/corvid-host/Rules/FaultyMessagePorts.h"

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/Dispatch.h"
#include "Platform/Unix/FrameReader.h"
#include "Platform/Unix/MessageFrame.h"
#include "Platform/Unix/PortFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <future>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvid {

namespace {

constexpr std::chrono::seconds kPatience(5);
constexpr std::string_view kGarbage = "this is no archive";
constexpr int kExitStatus = 3;
constexpr std::chrono::milliseconds kPauseAfterFailedAccept(10);

Bytes frameOf(const FrameHeader& request, const std::optional<Bytes>& data) {
    FrameHeader header;
    header.kind = FrameKind::reply;
    header.messageID = request.messageID;
    header.number = request.number;
    header.hasData = data.has_value();
    header.dataBytes = data ? static_cast<std::uint32_t>(data->size()) : 0;
    const auto bytes = encodedHeader(header);
    Bytes frame(bytes.size() + (data ? data->size() : 0));
    const auto end = std::copy(bytes.begin(), bytes.end(), frame.begin());
    if (data) {
        std::copy(data->begin(), data->end(), end);
    }
    return frame;
}

} // namespace

/// A port with a thread that accepts, and one more for each message with a fault.
class FaultyMessagePorts::LocalPort final : public MessagePort, public NameHolder {
public:
    LocalPort(std::string name, PortFolder::Listener listener, MessagePortCallback callback,
              const FaultOf& faultOf)
        : name_(std::move(name)), place_(placeOf(listener)), listener_(std::move(listener)),
          callback_(std::move(callback)), faultOf_(faultOf), stop_(eventfd(0, EFD_CLOEXEC)),
          listenerChanged_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~LocalPort() override { invalidate(); }

    const std::string& name() const override { return name_; }

    std::string keepName(PortFolder& folder) override {
        const MutexLock lock(mutex_);
        if (!isOpen_ || (place_ && folder.leadsTo(*place_))) {
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

    void start(DispatchQueue& queue) {
        queue_ = &queue;
        thread_ = std::thread([this] { run(); });
    }

    void invalidate() {
        {
            const MutexLock lock(mutex_);
            if (!std::exchange(isOpen_, false)) {
                return;
            }
        }
        ring(stop_);
        if (thread_.joinable()) {
            thread_.join();
        }
        MutexLock lock(mutex_);
        while (faultCount_ > 0) {
            lock.wait(faultEnded_);
        }
        PortFolder::release(listener_);
        if (nextListener_) {
            PortFolder::release(*nextListener_);
        }
    }

private:
    static PortFolder::Place placeOf(const PortFolder::Listener& listener) {
        return {listener.file, listener.inode, listener.device};
    }

    static void ring(const OwnedFd& bell) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(bell.get(), &one, sizeof one);
    }

    /// Has the accepting thread go on at `listener`, or at none.
    void changeListener(PortFolder::Listener listener) CORVID_REQUIRES(mutex_) {
        if (nextListener_) {
            PortFolder::release(*nextListener_);
        }
        nextListener_ = std::move(listener);
        ring(listenerChanged_);
    }

    void takeNextListener() {
        std::uint64_t ignored = 0;
        [[maybe_unused]] const ssize_t bytes =
            read(listenerChanged_.get(), &ignored, sizeof ignored);
        std::optional<PortFolder::Listener> next;
        {
            const MutexLock lock(mutex_);
            next = std::exchange(nextListener_, std::nullopt);
        }
        if (next) {
            // Those who still wait at the old socket come first. With no new one, another process
            // has the name, and they are not answered.
            while (next->fd && acceptOne()) {
            }
            PortFolder::release(listener_);
            listener_ = std::move(*next);
        }
    }

    /// Waits for `events` of `descriptor`; false when the time is over or the port is.
    bool wait(int descriptor, short events, std::chrono::milliseconds time) const {
        std::array<pollfd, 2> sources{{{stop_.get(), POLLIN, 0}, {descriptor, events, 0}}};
        const int ready = poll(sources.data(), sources.size(), static_cast<int>(time.count()));
        return ready > 0 && sources[0].revents == 0;
    }

    bool isStopped() const {
        pollfd source{stop_.get(), POLLIN, 0};
        return poll(&source, 1, 0) > 0;
    }

    void run() {
        while (!isStopped()) {
            std::array<pollfd, 3> sources{{{stop_.get(), POLLIN, 0},
                                           {listenerChanged_.get(), POLLIN, 0},
                                           {listener_.fd ? listener_.fd.get() : -1, POLLIN, 0}}};
            poll(sources.data(), sources.size(), -1);
            if (sources[1].revents != 0) {
                takeNextListener();
            } else if (sources[2].revents != 0 && !acceptOne()) {
                // Without descriptors: not as fast as the processor can.
                wait(-1, 0, kPauseAfterFailedAccept);
            }
        }
    }

    /// False when nobody waits, or nobody can be accepted.
    bool acceptOne() {
        OwnedFd connection(
            accept4(listener_.fd.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!connection) {
            return false;
        }
        try {
            serve(std::move(connection));
        } catch (...) {
            // No memory or no thread: the message gets no answer, and the next may get one.
        }
        return true;
    }

    void serve(OwnedFd connection) {
        FrameReader reader;
        std::array<std::uint8_t, 16 * 1024> scratch;
        while (reader.state() == FrameReader::State::header ||
               reader.state() == FrameReader::State::data) {
            if (!wait(connection.get(), POLLIN, kPatience)) {
                return;
            }
            const ssize_t count = recv(connection.get(), scratch.data(), scratch.size(), 0);
            if (count <= 0) {
                return;
            }
            reader.feed(ByteView(scratch).first(static_cast<std::size_t>(count)));
        }
        if (reader.state() != FrameReader::State::complete) {
            return;
        }
        const FrameHeader request = reader.header();
        const auto data = std::make_shared<const Bytes>(reader.takeData());
        const std::optional<Fault> fault = faultOf_(
            request.messageID, request.hasData ? std::optional<ByteView>(*data) : std::nullopt);
        if (!fault) {
            answer(connection, request, *data);
            return;
        }
        {
            const MutexLock lock(mutex_);
            if (faultCount_ == kMostFaults) {
                return;
            }
            ++faultCount_;
        }
        try {
            std::thread([this, request, data, fault = *fault,
                         socket = std::move(connection)]() mutable {
                try {
                    goWrong(socket, request, *data, fault);
                } catch (...) {
                    // No memory: no answer.
                }
                socket.reset();
                endFault();
            }).detach(); // invalidate() waits for the count
        } catch (...) {
            endFault();
            throw;
        }
    }

    void endFault() {
        const MutexLock lock(mutex_);
        --faultCount_;
        faultEnded_.notify_all();
    }

    std::optional<Bytes> result(const FrameHeader& request, const Bytes& data) {
        std::promise<std::optional<Bytes>> promise;
        queue_->async([&] {
            try {
                promise.set_value(
                    callback_(*this, request.messageID,
                              request.hasData ? std::optional<ByteView>(data) : std::nullopt));
            } catch (...) {
                promise.set_exception(std::current_exception());
            }
        });
        return promise.get_future().get();
    }

    void answer(const OwnedFd& connection, const FrameHeader& request, const Bytes& data) {
        const std::optional<Bytes> reply = result(request, data);
        if (request.wantsReply) {
            sendAll(connection, frameOf(request, reply));
        }
    }

    void sendAll(const OwnedFd& connection, const Bytes& frame) const {
        std::size_t sent = 0;
        while (sent < frame.size()) {
            const ssize_t count =
                send(connection.get(), frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
            if (count > 0) {
                sent += static_cast<std::size_t>(count);
            } else if (errno != EAGAIN || !wait(connection.get(), POLLOUT, kPatience)) {
                return;
            }
        }
    }

    void goWrong(const OwnedFd& connection, const FrameHeader& request, const Bytes& data,
                 const Fault& fault) {
        switch (fault.kind) {
        case Fault::Kind::delay:
            wait(-1, 0, fault.time);
            if (!isStopped()) {
                answer(connection, request, data);
            }
            return;
        case Fault::Kind::hang:
            // Until the other side gives up. A sender shuts nothing down before, so that
            // readability is its end.
            wait(connection.get(), POLLIN, std::chrono::hours(24));
            return;
        case Fault::Kind::noReply:
            return;
        case Fault::Kind::garbage:
            sendAll(connection, frameOf(request, Bytes(kGarbage.begin(), kGarbage.end())));
            return;
        case Fault::Kind::oversize: {
            FrameHeader header = request;
            header.kind = FrameKind::reply;
            header.hasData = true;
            header.dataBytes = std::numeric_limits<std::uint32_t>::max();
            const auto bytes = encodedHeader(header);
            sendAll(connection, Bytes(bytes.begin(), bytes.end()));
            return;
        }
        case Fault::Kind::drip:
            for (const std::uint8_t byte : frameOf(request, result(request, data))) {
                sendAll(connection, Bytes{byte});
                if (wait(connection.get(), POLLIN, fault.time) || isStopped()) {
                    return;
                }
            }
            return;
        case Fault::Kind::exit:
            std::_Exit(kExitStatus);
        }
    }

    const std::string name_;
    Mutex mutex_;
    /// Where the name of `listener_`, or of the next one, leads; nothing while another process has
    /// it.
    std::optional<PortFolder::Place> place_ CORVID_GUARDED_BY(mutex_);
    std::optional<PortFolder::Listener> nextListener_ CORVID_GUARDED_BY(mutex_);
    PortFolder::Listener listener_; ///< the accepting thread's
    const MessagePortCallback callback_;
    const FaultOf& faultOf_;
    const OwnedFd stop_;
    const OwnedFd listenerChanged_;
    DispatchQueue* queue_ = nullptr;
    bool isOpen_ CORVID_GUARDED_BY(mutex_) = true;
    std::thread thread_;
    std::condition_variable faultEnded_;
    std::size_t faultCount_ CORVID_GUARDED_BY(mutex_) = 0;
};

MessagePortRef FaultyMessagePorts::createRemote(std::string_view name) {
    return real_.createRemote(name);
}

PortPresence FaultyMessagePorts::presenceOf(std::string_view name) {
    return real_.presenceOf(name);
}

SendStatus FaultyMessagePorts::sendRequest(MessagePort& remote, std::int32_t messageID,
                                           ByteView data, std::chrono::milliseconds sendTimeout,
                                           std::chrono::milliseconds receiveTimeout,
                                           std::optional<std::string_view> replyMode,
                                           std::optional<Bytes>* reply) {
    return real_.sendRequest(remote, messageID, data, sendTimeout, receiveTimeout, replyMode,
                             reply);
}

MessagePortRef FaultyMessagePorts::createLocal(std::string_view name,
                                               MessagePortCallback callback) {
    auto listener = real_.portFolder().take(name);
    if (!listener) {
        return nullptr;
    }
    auto port = std::make_shared<LocalPort>(std::string(name), std::move(*listener),
                                            std::move(callback), faultOf_);
    real_.portFolder().addHolder(port);
    return port;
}

void FaultyMessagePorts::setDispatchQueue(MessagePort& local, DispatchQueue& queue) {
    dynamic_cast<LocalPort&>(local).start(queue);
}

void FaultyMessagePorts::invalidate(MessagePort& port) {
    if (auto* const local = dynamic_cast<LocalPort*>(&port)) {
        local->invalidate();
    } else {
        real_.invalidate(port);
    }
}

} // namespace corvid
