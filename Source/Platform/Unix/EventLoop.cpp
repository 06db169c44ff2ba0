#include "Platform/Unix/EventLoop.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace corvid {

namespace {

constexpr std::size_t kEventsPerRound = 128;

[[noreturn]] void throwError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

EventLoop::EventLoop()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), wakeUp_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      ready_(kEventsPerRound) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;
    if (!epoll_ || !wakeUp_ || epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wakeUp_.get(), &event) != 0) {
        throwError("event loop");
    }
}

EventLoop::~EventLoop() = default;

void EventLoop::run() {
    thread_ = std::this_thread::get_id();
    while (!isOver()) {
        const bool isWoken = !waitForSole() && waitForAll();
        runTimers();
        for (std::size_t i = 0; i < roundEnds_.size(); ++i) {
            if (EventSource* const source = std::exchange(roundEnds_[i], nullptr)) {
                source->onRoundEnd();
            }
        }
        roundEnds_.clear();
        if (isWoken) {
            std::uint64_t wakeUps = 0;
            [[maybe_unused]] const ssize_t ignored = read(wakeUp_.get(), &wakeUps, sizeof wakeUps);
            runBlocks();
        }
    }
    thread_ = std::thread::id();
}

bool EventLoop::isOver() {
    const MutexLock lock(mutex_);
    return stopped_ && blocks_.empty();
}

// False when there is something else to wait for, or to do.
bool EventLoop::waitForSole() {
    if (sole_ == nullptr || watchedCount_ != 1 || !timers_.empty() || !sole_->prepareToWait()) {
        return false;
    }
    {
        const MutexLock lock(mutex_);
        if (stopped_ || !blocks_.empty()) {
            return false;
        }
        waiting_ = sole_;
    }
    sole_->waitAndServe();
    const MutexLock lock(mutex_);
    waiting_ = nullptr;
    return true;
}

// Whether there are blocks to run.
bool EventLoop::waitForAll() {
    const int count = epoll_wait(epoll_.get(), ready_.data(), static_cast<int>(ready_.size()),
                                 waitMilliseconds());
    readyCount_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    bool isWoken = false;
    for (std::size_t i = 0; i < readyCount_; ++i) {
        // Copied, since a source may be unwatched, and its event cleared, by another.
        const epoll_event event = ready_[i];
        if (event.data.ptr != nullptr) {
            static_cast<EventSource*>(event.data.ptr)->onEvents(event.events);
        } else if (event.events != 0) {
            isWoken = true;
        }
    }
    readyCount_ = 0;
    return isWoken;
}

void EventLoop::stop() {
    const MutexLock lock(mutex_);
    stopped_ = true;
    wake();
}

void EventLoop::post(std::function<void()> block) {
    const MutexLock lock(mutex_);
    blocks_.push_back(std::move(block));
    if (blocks_.size() == 1) {
        wake();
    }
}

void EventLoop::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = write(wakeUp_.get(), &one, sizeof one);
    if (waiting_ != nullptr) {
        waiting_->interrupt();
    }
}

void EventLoop::runBlocks() {
    std::vector<std::function<void()>> blocks;
    {
        const MutexLock lock(mutex_);
        blocks.swap(blocks_);
    }
    for (auto& block : blocks) {
        block();
        block = nullptr;
    }
}

bool EventLoop::watch(int fd, std::uint32_t events, EventSource& source) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = &source;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        return false;
    }
    ++watchedCount_;
    return true;
}

bool EventLoop::watch(int fd, std::uint32_t events, SoleSource& source) {
    if (!watch(fd, events, static_cast<EventSource&>(source))) {
        return false;
    }
    sole_ = &source;
    return true;
}

void EventLoop::unwatch(int fd, EventSource& source) {
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr) == 0) {
        --watchedCount_;
    }
    if (sole_ == &source) {
        sole_ = nullptr;
    }
    for (std::size_t i = 0; i < readyCount_; ++i) {
        if (ready_[i].data.ptr == &source) {
            ready_[i] = epoll_event{};
        }
    }
    std::replace(roundEnds_.begin(), roundEnds_.end(), &source, static_cast<EventSource*>(nullptr));
    setTimer(source, std::nullopt);
}

void EventLoop::atRoundEnd(EventSource& source) {
    if (std::find(roundEnds_.begin(), roundEnds_.end(), &source) == roundEnds_.end()) {
        roundEnds_.push_back(&source);
    }
}

void EventLoop::setTimer(EventSource& source,
                         std::optional<std::chrono::steady_clock::time_point> moment) {
    std::erase_if(timers_, [&](const auto& timer) { return timer.first == &source; });
    if (moment) {
        timers_.emplace_back(&source, *moment);
    }
}

int EventLoop::waitMilliseconds() const {
    if (timers_.empty()) {
        return -1;
    }
    const auto next =
        std::min_element(timers_.begin(), timers_.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        next->second - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, 60'000));
}

void EventLoop::runTimers() {
    if (timers_.empty()) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    std::vector<EventSource*> due;
    for (const auto& [source, moment] : timers_) {
        if (moment <= now) {
            due.push_back(source);
        }
    }
    for (EventSource* source : due) {
        // Another timer's source may have taken it away meanwhile.
        const auto timer = std::find_if(timers_.begin(), timers_.end(), [&](const auto& candidate) {
            return candidate.first == source && candidate.second <= now;
        });
        if (timer != timers_.end()) {
            timers_.erase(timer);
            source->onTimer();
        }
    }
}

} // namespace corvid
