#include "Platform/Unix/FolderWatcher.h"

#include "Platform/Unix/FileEvents.h"
#include "Platform/Unix/UnixDispatch.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <utility>

// glibc 2.36 declares its functions without C linkage.
extern "C" {
#include <sys/pidfd.h>
}

namespace corvid {

namespace {

constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr std::uint32_t kNames = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// Others may make events without end, in a temporary folder for all; each round takes this many
// times sixty or more and leaves the rest to the next.
constexpr int kReadsPerRound = 64;

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// A process says it once, whichever of its watchers is concerned.
void sayOnce(const std::string& problem) {
    static std::atomic<bool> isSaid{false};
    if (!isSaid.exchange(true)) {
        std::fprintf(stderr, "corvid: %s\n", problem.c_str());
    }
}

} // namespace

/// A process whose end is a change.
class FolderWatcher::Process final : public EventSource {
public:
    Process(FolderWatcher& owner, pid_t process)
        : owner_(owner), descriptor_(pidfd_open(process, 0)) {
        if (descriptor_ && !owner_.queue_.loop().watch(descriptor_.get(), EPOLLIN, *this)) {
            descriptor_.reset();
        }
        if (!descriptor_) {
            // It has ended since it was seen, or cannot be watched.
            owner_.lookAgain();
        }
    }
    ~Process() override {
        if (descriptor_) {
            owner_.queue_.loop().unwatch(descriptor_.get(), *this);
        }
    }

    bool hasEnded() const { return !descriptor_; }

private:
    void onEvents(std::uint32_t) override {
        // A process that has ended is ready for ever.
        owner_.queue_.loop().unwatch(descriptor_.get(), *this);
        descriptor_.reset();
        owner_.onChange_();
    }

    FolderWatcher& owner_;
    OwnedFd descriptor_;
};

FolderWatcher::FolderWatcher(RuntimeFolder folder, DispatchQueue& queue,
                             std::function<void()> onChange)
    : folder_(std::move(folder)), queue_(dynamic_cast<UnixDispatchQueue&>(queue)),
      onChange_(std::move(onChange)) {
    queue_.sync([this] { arm(); });
    queue_.async([this, watched = std::weak_ptr<const bool>(alive_)] {
        if (!watched.expired()) {
            onChange_();
        }
    });
}

FolderWatcher::~FolderWatcher() {
    queue_.sync([this] {
        alive_.reset();
        processes_.clear();
        queue_.loop().unwatch(inotify_.get(), *this); // Takes the timer, too.
    });
}

void FolderWatcher::watchProcesses(const std::vector<pid_t>& processes) {
    std::erase_if(processes_, [&](const auto& entry) {
        return std::find(processes.begin(), processes.end(), entry.first) == processes.end();
    });
    for (const pid_t process : processes) {
        auto& entry = processes_[process];
        if (entry == nullptr || entry->hasEnded()) {
            entry = std::make_unique<Process>(*this, process);
        }
    }
}

void FolderWatcher::lookAgain() {
    if (!mustLook_) {
        mustLook_ = true;
        queue_.loop().setTimer(*this, std::chrono::steady_clock::now() + kLookInterval);
    }
}

void FolderWatcher::onTimer() {
    mustLook_ = false;
    if (!problem_.empty()) {
        arm();
    }
    onChange_();
}

void FolderWatcher::onEvents(std::uint32_t) {
    bool isOtherFolder = false;
    bool isChange = false;
    int reads = 0;
    while (reads++ < kReadsPerRound &&
           readFileEvents(
               inotify_.get(),
               [&](const FileEvent& event) {
                   const auto awaited = awaited_.find(event.watch);
                   isOtherFolder = isOtherFolder || (event.mask & (kGone | IN_Q_OVERFLOW)) != 0 ||
                                   (awaited != awaited_.end() && awaited->second == event.name) ||
                                   (event.watch == runtimeWatch_ && (event.mask & IN_ISDIR) != 0);
                   isChange =
                       isChange || event.watch == runtimeWatch_ || event.watch == portsWatch_;
               })) {
    }
    if (isOtherFolder) {
        arm();
    }
    if (isOtherFolder || isChange) {
        onChange_();
    }
}

// A folder that somebody still holds open says nothing when it is removed, but the one above it
// does: so each is watched, and the two above the runtime folder, or the nearest that exist.
void FolderWatcher::arm() {
    if (inotify_) {
        queue_.loop().unwatch(inotify_.get(), *this); // Takes the timer, too.
        inotify_.reset();
    }
    awaited_.clear();
    runtimeWatch_ = portsWatch_ = -1;
    watchError_ = 0;
    inotify_ = OwnedFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!inotify_) {
        watchError_ = errno;
    } else {
        const std::string parent = parentOf(folder_.path());
        watchAbove(parent);
        watchAbove(folder_.path());
        runtimeWatch_ = watch(folder_.path(), kNames | IN_CLOSE_WRITE | IN_DONT_FOLLOW);
        portsWatch_ = watch(folder_.pathOf("ports"), kNames | IN_DONT_FOLLOW);
        if (!queue_.loop().watch(inotify_.get(), EPOLLIN, *this)) {
            watchError_ = errno;
        }
    }
    problem_ = whatFails();
    const bool looksAgain = std::exchange(mustLook_, false);
    if (!problem_.empty()) {
        inotify_.reset();
        sayOnce(problem_);
    }
    if (looksAgain || !problem_.empty()) {
        lookAgain();
    }
}

std::string FolderWatcher::whatFails() const {
    if (watchError_ == 0) {
        return {};
    }
    return "changes in " + folder_.path() +
           " are not told (inotify: " + std::strerror(watchError_) + ") but looked for every " +
           std::to_string(kLookInterval.count() / 1000) +
           " seconds; end programs that watch many files, or raise "
           "fs.inotify.max_user_instances or max_user_watches";
}

void FolderWatcher::watchAbove(const std::string& path) {
    const std::string parent = parentOf(path);
    if (parent == path) {
        return;
    }
    int above = watch(parent, kNames);
    if (above < 0) {
        watchAbove(parent);
        // It may have been made between the two looks.
        above = watch(parent, kNames);
    }
    if (above >= 0) {
        awaited_[above] = nameOf(path);
    }
}

// A folder that is not there, or may not be looked into, is no problem: the one above it tells.
int FolderWatcher::watch(const std::string& path, std::uint32_t events) {
    const int result = inotify_add_watch(inotify_.get(), path.c_str(),
                                         events | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
    const bool isShortage = result < 0 && (errno == ENOSPC || errno == ENOMEM || errno == EMFILE);
    if (isShortage && watchError_ == 0) {
        watchError_ = errno;
    }
    return result;
}

} // namespace corvid
