#include "HostKit/PushSenders.h"

#include "Extensions/Finder/CVMAMessageID.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace corvid::hostkit {

namespace {

constexpr std::chrono::seconds kSendTimeout(1);

/// What is told must not end a thread, whatever the listener throws.
void tell(const std::function<void(const std::string&)>& listener,
          const std::string& text) noexcept {
    try {
        listener(text);
    } catch (...) {
        // There is nobody left to tell.
    }
}

} // namespace

PushSenders::PushSenders(MessagePortService& service,
                         std::function<void(const std::string&)> onGone,
                         std::function<void(const std::string&)> onProblem, std::size_t mostWaiting)
    : service_(service), onGone_(std::move(onGone)), onProblem_(std::move(onProblem)),
      mostWaiting_(mostWaiting) {
    threads_.reserve(kMostThreads);
}

PushSenders::~PushSenders() {
    stop();
}

PushSenders::Added PushSenders::add(const std::string& port) {
    const MutexLock lock(mutex_);
    if (isStopped_) {
        return Added::isStopped;
    }
    if (const auto found = lanes_.find(port); found != lanes_.end()) {
        found->second->isGone = false;
        found->second->pause = {};
        return Added::isKnown;
    }
    if (lanes_.size() >= kMostLanes) {
        return Added::isFull;
    }
    auto lane = std::make_shared<Lane>();
    lane->port = port;
    lanes_.emplace(port, std::move(lane));
    return Added::isNew;
}

bool PushSenders::remove(const std::string& port) {
    const MutexLock lock(mutex_);
    const auto found = lanes_.find(port);
    if (found == lanes_.end()) {
        return false;
    }
    clear(*found->second);
    found->second->isRemoved = true;
    lanes_.erase(found);
    settled_.notify_all();
    return true;
}

bool PushSenders::removeGone(const std::string& port) {
    const MutexLock lock(mutex_);
    const auto found = lanes_.find(port);
    if (found == lanes_.end() || !found->second->isGone) {
        return false;
    }
    found->second->isRemoved = true;
    lanes_.erase(found);
    return true;
}

std::size_t PushSenders::count() const {
    const MutexLock lock(mutex_);
    return lanes_.size();
}

void PushSenders::push(const PushRef& push) {
    std::string loser;
    bool hasThread = true;
    {
        const MutexLock lock(mutex_);
        if (isStopped_) {
            return;
        }
        for (const auto& [port, lane] : lanes_) {
            if (lane->isGone) {
                continue;
            }
            const std::size_t before = lane->waiting.size();
            lane->waiting.add(push);
            waitingCount_ += lane->waiting.size() - before;
            if (waitingCount_ > mostWaiting_) {
                const std::string dropped = dropOldest();
                loser = loser.empty() ? dropped : loser; // a lane that loses more says nothing
            }
        }
        hasThread = startThread();
        if (idleCount_ > 0) {
            work_.notify_all();
        }
    }
    if (!hasThread) {
        sayNoThread();
    }
    if (!loser.empty()) {
        tell(onProblem_,
             fmt::format("more than {} badges wait to be sent, most of them to the extension {}; "
                         "its oldest are dropped, and what it shows of those items is old until "
                         "their folder is opened again; end that extension if it hangs",
                         mostWaiting_, loser));
    }
}

bool PushSenders::waitUntilSent(std::chrono::steady_clock::time_point deadline) {
    MutexLock lock(mutex_);
    const auto isSettled = [this]() CORVID_NO_THREAD_SAFETY_ANALYSIS {
        return std::ranges::all_of(lanes_, [](const auto& entry) {
            const Lane& lane = *entry.second;
            return lane.isGone || (lane.waiting.size() == 0 && !lane.isSending);
        });
    };
    startThread();
    while (!isSettled()) {
        if (!lock.waitUntil(settled_, deadline)) {
            return isSettled();
        }
    }
    return true;
}

void PushSenders::stop() {
    std::vector<std::thread> threads;
    {
        const MutexLock lock(mutex_);
        isStopped_ = true;
        for (const auto& [port, lane] : lanes_) {
            clear(*lane);
            lane->isRemoved = true;
        }
        lanes_.clear();
        threads.swap(threads_);
        work_.notify_all();
        settled_.notify_all();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void PushSenders::run() {
    MutexLock lock(mutex_);
    while (!isStopped_) {
        auto until = Clock::time_point::max();
        const LaneRef lane = nextLane(Clock::now(), until);
        if (lane == nullptr) {
            ++idleCount_;
            if (until == Clock::time_point::max()) {
                lock.wait(work_);
            } else {
                lock.waitUntil(work_, until);
            }
            --idleCount_;
            continue;
        }
        PushRef push = lane->waiting.takeFirst();
        --waitingCount_;
        lane->isSending = true;
        lane->turn = ++turns_;
        const std::size_t doubtful = lane->pause.count() > 0 ? 1 : 0;
        doubtfulCount_ += doubtful;
        startThread();
        lock.unlock();
        const Outcome outcome = send(lane->port, *push);
        lock.lock();
        doubtfulCount_ -= doubtful;
        lane->isSending = false;
        const bool isFoundGone = outcome == Outcome::gone && !lane->isRemoved;
        if (!lane->isRemoved) {
            settle(*lane, std::move(push), outcome);
        }
        settled_.notify_all();
        if (isFoundGone) {
            lock.unlock();
            tell(onGone_, lane->port);
            lock.lock();
        }
    }
}

PushSenders::Outcome PushSenders::send(const std::string& port,
                                       const PushLane::Push& push) noexcept {
    try {
        const MessagePortRef remote = service_.createRemote(port);
        if (remote == nullptr) {
            return service_.presenceOf(port).state == PortPresence::State::gone ? Outcome::gone
                                                                                : Outcome::failed;
        }
        const SendStatus status =
            service_.sendRequest(*remote, CVMAMessageID(CVMAMessageID::provideBadge).rawValue(),
                                 push.payload, kSendTimeout, kSendTimeout, std::nullopt, nullptr);
        return status == SendStatus::success ? Outcome::sent : Outcome::failed;
    } catch (...) {
        return Outcome::failed; // No memory: later, perhaps.
    }
}

PushSenders::LaneRef PushSenders::nextLane(Clock::time_point now, Clock::time_point& until) {
    LaneRef next;
    for (const auto& [port, lane] : lanes_) {
        if (lane->isSending || lane->isGone || lane->waiting.size() == 0) {
            continue;
        }
        const bool isDoubtful = lane->pause.count() > 0;
        if (isDoubtful && lane->notBefore > now) {
            until = std::min(until, lane->notBefore);
        } else if ((!isDoubtful || doubtfulCount_ + 1 < kMostThreads) &&
                   (next == nullptr || lane->turn < next->turn)) {
            next = lane;
        }
    }
    return next;
}

void PushSenders::settle(Lane& lane, PushRef push, Outcome outcome) {
    if (outcome == Outcome::gone) {
        lane.isGone = true;
        clear(lane);
        return;
    }
    if (outcome == Outcome::sent) {
        lane.pause = {};
        lane.hasLostSome = lane.hasLostSome && lane.waiting.size() > 0;
        return;
    }
    lane.pause = std::clamp(2 * lane.pause, kFirstPause, kLongestPause);
    lane.notBefore = Clock::now() + lane.pause;
    const std::size_t before = lane.waiting.size();
    try {
        lane.waiting.putBack(std::move(push));
    } catch (const std::exception&) {
        // No memory to keep it in: this one is lost.
    }
    waitingCount_ += lane.waiting.size() - before;
}

void PushSenders::clear(Lane& lane) {
    waitingCount_ -= lane.waiting.size();
    lane.waiting.clear();
}

std::string PushSenders::dropOldest() {
    const auto fullest = std::ranges::max_element(
        lanes_, {}, [](const auto& entry) { return entry.second->waiting.size(); });
    Lane& lane = *fullest->second;
    lane.waiting.takeFirst();
    --waitingCount_;
    return std::exchange(lane.hasLostSome, true) ? "" : lane.port;
}

bool PushSenders::startThread() {
    const auto waits = [](const auto& entry) {
        const Lane& lane = *entry.second;
        return lane.waiting.size() > 0 && !lane.isSending && !lane.isGone;
    };
    if (!isStopped_ && idleCount_ == 0 && threads_.size() < kMostThreads &&
        std::ranges::any_of(lanes_, waits)) {
        try {
            threads_.emplace_back([this] { run(); });
        } catch (const std::exception&) {
            // Those that there are do the work.
            return !threads_.empty();
        }
    }
    return true;
}

void PushSenders::sayNoThread() {
    {
        const MutexLock lock(mutex_);
        if (std::exchange(hasSaidNoThread_, true)) {
            return;
        }
    }
    tell(onProblem_, "the system gives no thread to send badges with; they wait, and each further "
                     "one tries again; end some of your programs");
}

} // namespace corvid::hostkit
