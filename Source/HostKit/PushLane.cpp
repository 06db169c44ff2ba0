#include "HostKit/PushLane.h"

#include "Extensions/Finder/CVMAMessageID.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <utility>

namespace corvid::hostkit {

namespace {

constexpr std::chrono::seconds kSendTimeout(1);
constexpr std::chrono::milliseconds kPauseAfterFailure(100);

} // namespace

PushLane::PushLane(MessagePortService& service, std::string portName, std::function<void()> onDead)
    : service_(service), portName_(std::move(portName)), onDead_(std::move(onDead)),
      thread_([this] { run(); }) {}

PushLane::~PushLane() {
    stop();
    thread_.join();
}

void PushLane::push(const std::string& path, Payload payload) {
    const MutexLock lock(mutex_);
    if (isStopped_) {
        return;
    }
    if (const auto found = byPath_.find(path); found != byPath_.end()) {
        found->second->payload = std::move(payload);
        return;
    }
    waiting_.push_back({path, std::move(payload)});
    byPath_.emplace(path, std::prev(waiting_.end()));
    changed_.notify_all();
}

void PushLane::stop() {
    const MutexLock lock(mutex_);
    isStopped_ = true;
    waiting_.clear();
    byPath_.clear();
    changed_.notify_all();
}

bool PushLane::isFinished() const {
    const MutexLock lock(mutex_);
    return isFinished_;
}

bool PushLane::waitUntilSent(std::chrono::steady_clock::time_point deadline) {
    MutexLock lock(mutex_);
    while (!waiting_.empty() || isSending_) {
        if (!lock.waitUntil(changed_, deadline)) {
            return waiting_.empty() && !isSending_;
        }
    }
    return true;
}

PushLane::Outcome PushLane::send(const Bytes& payload) {
    const MessagePortRef remote = service_.createRemote(portName_);
    if (remote == nullptr) {
        return Outcome::dead;
    }
    const SendStatus status =
        service_.sendRequest(*remote, CVMAMessageID(CVMAMessageID::provideBadge).rawValue(),
                             payload, kSendTimeout, kSendTimeout, std::nullopt, nullptr);
    return status == SendStatus::success ? Outcome::sent : Outcome::failed;
}

void PushLane::run() {
    bool isDead = false;
    while (true) {
        Push push;
        {
            MutexLock lock(mutex_);
            while (waiting_.empty() && !isStopped_) {
                lock.wait(changed_);
            }
            if (isStopped_) {
                break;
            }
            push = std::move(waiting_.front());
            byPath_.erase(push.path);
            waiting_.pop_front();
            isSending_ = true;
        }
        const Outcome outcome = send(*push.payload);
        isDead = outcome == Outcome::dead;
        if (isDead) {
            stop();
        }
        MutexLock lock(mutex_);
        isSending_ = false;
        if (outcome == Outcome::failed && !isStopped_ && !byPath_.contains(push.path)) {
            waiting_.push_front(std::move(push));
            byPath_.emplace(waiting_.front().path, waiting_.begin());
            // An extension that hangs has already cost the send's time-out; this is for failures
            // that come at once, such as a lack of descriptors.
            const auto until = std::chrono::steady_clock::now() + kPauseAfterFailure;
            while (!isStopped_ && lock.waitUntil(changed_, until)) {
            }
        }
        changed_.notify_all();
    }
    if (isDead) {
        onDead_();
    }
    const MutexLock lock(mutex_);
    isFinished_ = true;
}

} // namespace corvid::hostkit
