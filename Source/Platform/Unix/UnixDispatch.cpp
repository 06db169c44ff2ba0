#include "Platform/Unix/UnixDispatch.h"

#include "Platform/Unix/FatalSignals.h"
#include "Platform/Unix/MessagePortServer.h"

#include <condition_variable>
#include <csignal>
#include <pthread.h>
#include <utility>

namespace corvid {

namespace {

// Signals are the business of the threads that the program made itself; but a fault is reported
// on the thread that made it, and while it is blocked it would end the process unheard.
std::thread threadWithoutSignals(std::function<void()> body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
        sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread([body = std::move(body)] {
        const SignalStack stack;
        body();
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace

UnixDispatchQueue::UnixDispatchQueue(std::string label)
    : label_(std::move(label)), thread_(threadWithoutSignals([this] {
          // The system shows 15 characters; the end of a label tells more than its beginning.
          constexpr std::size_t kShown = 15;
          const std::size_t start = label_.size() > kShown ? label_.size() - kShown : 0;
          pthread_setname_np(pthread_self(), label_.c_str() + start);
          loop_.run();
      })) {}

UnixDispatchQueue::~UnixDispatchQueue() {
    loop_.stop();
    thread_.join();
}

void UnixDispatchQueue::async(std::function<void()> block) {
    loop_.post(std::move(block));
}

bool UnixDispatchQueue::isCurrent() const {
    return loop_.isCurrent();
}

void UnixDispatchQueue::sync(const std::function<void()>& block) {
    if (isCurrent()) {
        block();
        return;
    }
    Mutex mutex;
    std::condition_variable ran;
    bool hasRun = false;
    async([&] {
        block();
        const MutexLock lock(mutex);
        hasRun = true;
        ran.notify_one();
    });
    MutexLock lock(mutex);
    while (!hasRun) {
        lock.wait(ran);
    }
}

MessagePortServer& UnixDispatchQueue::messagePorts() {
    if (messagePorts_ == nullptr) {
        messagePorts_ = std::make_unique<MessagePortServer>(loop_);
    }
    return *messagePorts_;
}

UnixDispatch::UnixDispatch() = default;
UnixDispatch::~UnixDispatch() = default;

DispatchQueue& UnixDispatch::serialQueue(std::string_view label) {
    const MutexLock lock(mutex_);
    auto found = queues_.find(label);
    if (found == queues_.end()) {
        found = queues_
                    .emplace(std::string(label),
                             std::make_unique<UnixDispatchQueue>(std::string(label)))
                    .first;
    }
    return *found->second;
}

} // namespace corvid
