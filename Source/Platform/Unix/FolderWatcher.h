#pragma once

#include "Platform/Unix/EventLoop.h"
#include "Platform/Unix/OwnedFd.h"
#include "Platform/Unix/RuntimeFolder.h"

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
/// has ended. Nothing is polled. The folders need not exist yet.
class FolderWatcher final : public EventSource {
public:
    /// Calls `onChange` on `queue`, which is one of UnixDispatch: once soon, then at each change;
    /// several changes may be one call. The queue outlives the watcher.
    FolderWatcher(RuntimeFolder folder, DispatchQueue& queue, std::function<void()> onChange);
    /// `onChange` is not running any more when this returns. Any thread; not within `onChange`.
    ~FolderWatcher() override;
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    /// Counts the end of each of `processes`, and of no others, as a change. On the queue.
    void watchProcesses(const std::vector<pid_t>& processes);

private:
    class Process;

    void onEvents(std::uint32_t events) override;
    void arm();
    void watchAbove(const std::string& path);
    int watch(const std::string& path, std::uint32_t events);

    RuntimeFolder folder_;
    UnixDispatchQueue& queue_;
    std::function<void()> onChange_;
    OwnedFd inotify_;
    int runtimeWatch_ = -1;
    int portsWatch_ = -1;
    std::map<pid_t, std::unique_ptr<Process>> processes_;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

} // namespace corvid
