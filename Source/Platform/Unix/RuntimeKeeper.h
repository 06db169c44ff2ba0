#pragma once

#include "Platform/Unix/FolderWatcher.h"
#include "Platform/Unix/PortFolder.h"
#include "Platform/Unix/VolumeFile.h"

#include <functional>
#include <string>

namespace corvid {

/// Keeps in the runtime folder what this process has put there: whatever removes a file of it, or
/// the folder with all that is in it, the process takes its names again, unless another has taken
/// them meanwhile. Then it gives way for as long as that other lives, and says so; it looks every
/// FolderWatcher::kLookInterval whether that one has ended.
///
/// It costs nothing until something happens in the folder. What is removed is back within
/// milliseconds; within FolderWatcher::kLookInterval where the system does not tell of changes, or
/// where a name cannot be taken for another reason.
class RuntimeKeeper {
public:
    struct Owner {
        /// Something of the owner's own that is to be looked after at the same moments: puts it
        /// back. The problem, if it cannot; empty otherwise. May be left out.
        std::function<std::string()> keepMore;
        /// Another process has published a volume of the same name. May be left out.
        std::function<void()> volumeIsAnothers;
        /// Called when what is wrong has changed: sentences, or nothing when all is well again.
        std::function<void(const std::string& problem)> tell;
    };

    /// Looks after the names of `ports` and after `volume`, and calls `owner`, all on `queue`,
    /// which is one of UnixDispatch. All of them outlive this, and `volume` is used there only.
    RuntimeKeeper(PortFolder& ports, VolumeFile::Publication& volume, DispatchQueue& queue,
                  Owner owner);

private:
    void keep();

    PortFolder& ports_;
    VolumeFile::Publication& volume_;
    Owner owner_;
    std::string told_;
    FolderWatcher watcher_; ///< last: it calls the rest
};

} // namespace corvid
