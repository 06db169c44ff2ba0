#include "Platform/Unix/FolderWatcher.h"

#include "Platform/Unix/FileEvents.h"
#include "Platform/Unix/UnixDispatch.h"

#include <algorithm>
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

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

} // namespace

/// A process whose end is a change.
class FolderWatcher::Process final : public EventSource {
public:
    Process(FolderWatcher& owner, pid_t process)
        : owner_(owner), descriptor_(pidfd_open(process, 0)) {
        if (descriptor_) {
            owner_.queue_.loop().watch(descriptor_.get(), EPOLLIN, *this);
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
        queue_.loop().unwatch(inotify_.get(), *this);
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

void FolderWatcher::onEvents(std::uint32_t) {
    bool isOtherFolder = false;
    bool isChange = false;
    while (readFileEvents(inotify_.get(), [&](const FileEvent& event) {
        isOtherFolder = isOtherFolder || (event.mask & (kGone | IN_ISDIR)) != 0;
        isChange = isChange || event.watch == runtimeWatch_ || event.watch == portsWatch_;
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
// does: so each is watched, and the nearest that exists above them.
void FolderWatcher::arm() {
    if (inotify_) {
        queue_.loop().unwatch(inotify_.get(), *this);
    }
    inotify_ = OwnedFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (inotify_) {
        watchAbove(folder_.path());
        runtimeWatch_ = watch(folder_.path(), kNames | IN_CLOSE_WRITE | IN_DONT_FOLLOW);
        portsWatch_ = watch(folder_.pathOf("ports"), kNames | IN_DONT_FOLLOW);
        queue_.loop().watch(inotify_.get(), EPOLLIN, *this);
    }
}

void FolderWatcher::watchAbove(const std::string& path) {
    const std::string parent = parentOf(path);
    if (watch(parent, kNames) < 0 && parent != "/") {
        watchAbove(parent);
        // It may have been made between the two looks.
        watch(parent, kNames);
    }
}

int FolderWatcher::watch(const std::string& path, std::uint32_t events) {
    return inotify_add_watch(inotify_.get(), path.c_str(),
                             events | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
}

} // namespace corvid
