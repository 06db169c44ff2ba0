#pragma once

#include "Platform/Unix/FolderWatcher.h"
#include "Platform/Unix/PortFolder.h"

#include <functional>
#include <string>
#include <vector>

namespace corvid {

/// Tells when ports appear and vanish, also when their owner is killed. What FolderWatcher says of
/// polling holds here. While it cannot be found out which ports live, for want of descriptors say,
/// those that are known stay, and another look follows within FolderWatcher::kLookInterval.
class PortWatcher {
public:
    /// A port whose name begins with the prefix appeared or (`isAlive` false) vanished. One that
    /// changed owners between two looks vanishes and appears. One whose owner could not be asked
    /// who it is, since it hangs, appears once more when it could.
    using Callback = std::function<void(const LivePort& port, bool isAlive)>;

    /// Calls `callback` on `queue`, which is one of UnixDispatch and outlives the watcher; soon
    /// for each port that is alive already. The thread rules are FolderWatcher's.
    PortWatcher(RuntimeFolder folder, std::string prefix, DispatchQueue& queue, Callback callback);

private:
    void look();

    PortFolder folder_;
    std::string prefix_;
    Callback callback_;
    std::vector<LivePort> known_;
    FolderWatcher watcher_; ///< last: it calls the rest
};

} // namespace corvid
