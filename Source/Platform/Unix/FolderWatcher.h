#pragma once

#include "Platform/Unix/EventLoop.h"
#include "Platform/Unix/OwnedFd.h"
#include "Platform/Unix/RuntimeFolder.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvid {

class DispatchQueue;
class UnixDispatchQueue;

/// Tells when something may have changed in the runtime folder or in its folder `ports`: a file
/// came, went or was replaced, the folders themselves did, or a process that the owner asked about
/// has ended. The folders need not exist yet.
///
/// Nothing is polled as long as the system tells of changes. Where it does not, because this user
/// has no inotify instances or watches left or this process no descriptors, the watcher counts
/// every kLookInterval as a change and tries to be told again; problem() says why, and so does one
/// line on standard error. When more happens at once than the system keeps, that is one change.
class FolderWatcher final : public EventSource {
public:
    /// How long a change may go unseen that nobody tells of.
    static constexpr std::chrono::milliseconds kLookInterval{2000};

    /// Calls `onChange` on `queue`, which is one of UnixDispatch: once soon, then at each change;
    /// several changes may be one call. The queue outlives the watcher.
    FolderWatcher(RuntimeFolder folder, DispatchQueue& queue, std::function<void()> onChange);
    /// `onChange` is not running any more when this returns. Any thread; not within `onChange`.
    ~FolderWatcher() override;
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    /// Counts the end of each of `processes`, and of no others, as a change. On the queue. One
    /// that cannot be watched, such as 0 for an unknown one, has the owner called every
    /// kLookInterval instead.
    void watchProcesses(const std::vector<pid_t>& processes);

    /// Has `onChange` called once more, kLookInterval from now at the latest: for an owner that
    /// could not see what there is. On the queue.
    void lookAgain();

    /// Why changes are not told but looked for; empty when they are told. On the queue.
    const std::string& problem() const { return problem_; }

private:
    class Process;

    void onEvents(std::uint32_t events) override;
    void onTimer() override;
    void arm();
    std::string whatFails() const;
    void watchAbove(const std::string& path);
    int watch(const std::string& path, std::uint32_t events);

    RuntimeFolder folder_;
    UnixDispatchQueue& queue_;
    std::function<void()> onChange_;
    OwnedFd inotify_;
    int runtimeWatch_ = -1;
    int portsWatch_ = -1;
    std::map<int, std::string> awaited_; ///< watches above: what comes or goes there
    int watchError_ = 0;                 ///< of the first watch that the system has refused
    std::string problem_;
    bool mustLook_ = false; ///< a look is due at the timer
    std::map<pid_t, std::unique_ptr<Process>> processes_;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

} // namespace corvid
