#include "Platform/Fake/FakeMessagePortService.h"

#include "Platform/Interfaces/Dispatch.h"

#include <atomic>
#include <deque>
#include <future>
#include <utility>

namespace corvid {

namespace {

constexpr std::size_t kMaxNameBytes = 255;

/// A request on its way to a local port.
struct Request {
    std::int32_t messageID = 0;
    std::optional<Bytes> data;
    std::promise<std::optional<Bytes>> reply;
};

bool isName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxNameBytes;
}

std::string milliseconds(std::chrono::milliseconds duration) {
    return std::to_string(duration.count()) + "ms";
}

std::optional<Bytes> copied(std::optional<ByteView> data) {
    return data ? std::optional(Bytes(data->begin(), data->end())) : std::nullopt;
}

} // namespace

struct FakeMessagePortService::State {
    explicit State(CallLog& log) : calls(log) {}

    std::shared_ptr<LocalPort> local(std::string_view name) {
        const MutexLock lock(mutex);
        const auto found = locals.find(name);
        return found == locals.end() ? nullptr : found->second;
    }
    std::optional<Server> server(std::string_view name) {
        const MutexLock lock(mutex);
        const auto found = servers.find(name);
        return found == servers.end() ? std::nullopt : std::optional(found->second);
    }

    PortPresence presence(std::string_view name) {
        {
            const MutexLock lock(mutex);
            if (!hidingProblem.empty()) {
                return {PortPresence::State::unknown, hidingProblem};
            }
        }
        const bool exists = isName(name) && (server(name) || local(name) != nullptr);
        return {exists ? PortPresence::State::served : PortPresence::State::gone, {}};
    }

    CallLog& calls;
    Mutex mutex;
    std::map<std::string, Server, std::less<>> servers CORVID_GUARDED_BY(mutex);
    std::map<std::string, std::shared_ptr<LocalPort>, std::less<>> locals CORVID_GUARDED_BY(mutex);
    std::vector<Sent> sent CORVID_GUARDED_BY(mutex);
    bool failsNextCreateLocal CORVID_GUARDED_BY(mutex) = false;
    std::string hidingProblem CORVID_GUARDED_BY(mutex);
};

class FakeMessagePortService::RemotePort final : public MessagePort {
public:
    RemotePort(std::shared_ptr<State> state, std::string_view name)
        : state_(std::move(state)), name_(name) {}
    ~RemotePort() override { state_->calls.add("releaseRemote " + name_); }

    const std::string& name() const override { return name_; }

    std::atomic<bool> isValid = true;

private:
    std::shared_ptr<State> state_;
    std::string name_;
};

class FakeMessagePortService::LocalPort final : public MessagePort,
                                                public std::enable_shared_from_this<LocalPort> {
public:
    LocalPort(std::shared_ptr<State> state, std::string_view name, MessagePortCallback callback)
        : state_(std::move(state)), name_(name), callback_(std::move(callback)) {}

    const std::string& name() const override { return name_; }

    bool hasQueue() {
        const MutexLock lock(mutex_);
        return queue_ != nullptr;
    }

    /// Nothing is ready in the result before the callback has run; an invalid port breaks it.
    std::future<std::optional<Bytes>> post(std::int32_t messageID, std::optional<Bytes> data) {
        auto request = std::make_shared<Request>();
        request->messageID = messageID;
        request->data = std::move(data);
        auto reply = request->reply.get_future();
        const MutexLock lock(mutex_);
        if (isValid_ && queue_ != nullptr) {
            schedule(std::move(request));
        } else if (isValid_) {
            waiting_.push_back(std::move(request));
        }
        return reply;
    }

    void setQueue(DispatchQueue& queue) {
        const MutexLock lock(mutex_);
        if (!isValid_ || queue_ != nullptr) {
            return;
        }
        queue_ = &queue;
        for (auto& request : std::exchange(waiting_, {})) {
            schedule(std::move(request));
        }
    }

    void invalidate() {
        const auto self = shared_from_this();
        DispatchQueue* queue = nullptr;
        bool wasValid = false;
        {
            const MutexLock lock(mutex_);
            wasValid = std::exchange(isValid_, false);
            waiting_.clear();
            queue = queue_;
        }
        if (wasValid) {
            const MutexLock lock(state_->mutex);
            state_->locals.erase(name_);
        }
        if (queue != nullptr && !queue->isCurrent()) {
            auto passed = std::make_shared<std::promise<void>>();
            auto future = passed->get_future();
            queue->async([passed] { passed->set_value(); });
            future.wait();
        }
    }

private:
    void schedule(std::shared_ptr<Request> request) CORVID_REQUIRES(mutex_) {
        queue_->async([self = shared_from_this(), request = std::move(request)] {
            {
                const MutexLock lock(self->mutex_);
                if (!self->isValid_) {
                    return;
                }
            }
            const auto& data = request->data;
            request->reply.set_value(self->callback_(
                *self, request->messageID, data ? std::optional(ByteView(*data)) : std::nullopt));
        });
    }

    std::shared_ptr<State> state_;
    std::string name_;
    MessagePortCallback callback_;
    Mutex mutex_;
    bool isValid_ CORVID_GUARDED_BY(mutex_) = true;
    DispatchQueue* queue_ CORVID_GUARDED_BY(mutex_) = nullptr;
    std::deque<std::shared_ptr<Request>> waiting_ CORVID_GUARDED_BY(mutex_);
};

FakeMessagePortService::FakeMessagePortService(CallLog& calls)
    : state_(std::make_shared<State>(calls)) {}

FakeMessagePortService::~FakeMessagePortService() = default;

void FakeMessagePortService::serve(std::string name, Server server) {
    const MutexLock lock(state_->mutex);
    state_->servers.insert_or_assign(std::move(name), std::move(server));
}

void FakeMessagePortService::stopServing(std::string_view name) {
    const MutexLock lock(state_->mutex);
    if (const auto found = state_->servers.find(name); found != state_->servers.end()) {
        state_->servers.erase(found);
    }
}

std::vector<FakeMessagePortService::Sent> FakeMessagePortService::sent() const {
    const MutexLock lock(state_->mutex);
    return state_->sent;
}

void FakeMessagePortService::hideRemotes(std::string problem) {
    const MutexLock lock(state_->mutex);
    state_->hidingProblem = std::move(problem);
}

void FakeMessagePortService::failNextCreateLocal() {
    const MutexLock lock(state_->mutex);
    state_->failsNextCreateLocal = true;
}

std::vector<std::string> FakeMessagePortService::localNames() const {
    const MutexLock lock(state_->mutex);
    std::vector<std::string> names;
    for (const auto& [name, port] : state_->locals) {
        names.push_back(name);
    }
    return names;
}

std::optional<Bytes> FakeMessagePortService::deliver(std::string_view name, std::int32_t messageID,
                                                     std::optional<ByteView> data) {
    const auto port = state_->local(name);
    if (port == nullptr || !port->hasQueue()) {
        return std::nullopt;
    }
    try {
        return port->post(messageID, copied(data)).get();
    } catch (const std::future_error&) {
        return std::nullopt;
    }
}

MessagePortRef FakeMessagePortService::createRemote(std::string_view name) {
    const bool isFound = state_->presence(name).state == PortPresence::State::served;
    state_->calls.add("createRemote " + std::string(name) + (isFound ? "" : " -> absent"));
    return isFound ? std::make_shared<RemotePort>(state_, name) : nullptr;
}

PortPresence FakeMessagePortService::presenceOf(std::string_view name) {
    PortPresence presence = state_->presence(name);
    const bool isServed = presence.state == PortPresence::State::served;
    const bool isGone = presence.state == PortPresence::State::gone;
    state_->calls.add("presenceOf " + std::string(name) +
                      (isServed ? ""
                       : isGone ? " -> gone"
                                : " -> unknown"));
    return presence;
}

SendStatus FakeMessagePortService::sendRequest(MessagePort& remote, std::int32_t messageID,
                                               ByteView data, std::chrono::milliseconds sendTimeout,
                                               std::chrono::milliseconds receiveTimeout,
                                               std::optional<std::string_view> replyMode,
                                               std::optional<Bytes>* reply) {
    const std::string& name = remote.name();
    const bool hasData = data.data() != nullptr;
    state_->calls.add("sendRequest " + name + " id=" + std::to_string(messageID) +
                      " bytes=" + (hasData ? std::to_string(data.size()) : "none") + " send=" +
                      milliseconds(sendTimeout) + " receive=" + milliseconds(receiveTimeout) +
                      " replyMode=" + std::string(replyMode.value_or("none")));
    const auto* const port = dynamic_cast<RemotePort*>(&remote);
    if (port == nullptr || !port->isValid) {
        return SendStatus::isInvalid;
    }
    if (data.size() > kMaxMessageBytes) {
        return SendStatus::transportError;
    }
    {
        const MutexLock lock(state_->mutex);
        state_->sent.push_back(
            {name, messageID, Bytes(data.begin(), data.end()), replyMode.has_value()});
    }
    const auto view = hasData ? std::optional(data) : std::nullopt;
    std::optional<Bytes> answer;
    if (const auto server = state_->server(name)) {
        Answer served = (*server)(messageID, view);
        if (served.status != SendStatus::success) {
            return served.status;
        }
        answer = std::move(served.reply);
    } else if (const auto local = state_->local(name)) {
        auto pending = local->post(messageID, copied(view));
        if (!replyMode) {
            return SendStatus::success;
        }
        if (pending.wait_for(receiveTimeout) != std::future_status::ready) {
            return SendStatus::receiveTimeout;
        }
        try {
            answer = pending.get();
        } catch (const std::future_error&) {
            return SendStatus::becameInvalid;
        }
    } else {
        return SendStatus::isInvalid;
    }
    if (!replyMode || !answer) {
        return SendStatus::success;
    }
    if (answer->size() > kMaxMessageBytes) {
        return SendStatus::transportError;
    }
    if (reply != nullptr) {
        *reply = std::move(answer);
    }
    return SendStatus::success;
}

MessagePortRef FakeMessagePortService::createLocal(std::string_view name,
                                                   MessagePortCallback callback) {
    std::shared_ptr<LocalPort> port;
    {
        const MutexLock lock(state_->mutex);
        const bool fails = std::exchange(state_->failsNextCreateLocal, false);
        if (!fails && isName(name) && !state_->locals.contains(name) &&
            !state_->servers.contains(name)) {
            port = std::make_shared<LocalPort>(state_, name, std::move(callback));
            state_->locals.emplace(std::string(name), port);
        }
    }
    state_->calls.add("createLocal " + std::string(name) + (port == nullptr ? " -> failed" : ""));
    if (port == nullptr) {
        return nullptr;
    }
    MessagePort* const handle = port.get();
    return {handle, [port = std::move(port), state = state_](MessagePort*) {
                state->calls.add("releaseLocal " + port->name());
                port->invalidate();
            }};
}

void FakeMessagePortService::setDispatchQueue(MessagePort& local, DispatchQueue& queue) {
    state_->calls.add("setDispatchQueue " + local.name() + " " + queue.label());
    dynamic_cast<LocalPort&>(local).setQueue(queue);
}

void FakeMessagePortService::invalidate(MessagePort& port) {
    state_->calls.add("invalidate " + port.name());
    if (auto* const local = dynamic_cast<LocalPort*>(&port)) {
        local->invalidate();
    } else if (auto* const remote = dynamic_cast<RemotePort*>(&port)) {
        remote->isValid = false;
    }
}

} // namespace corvid
