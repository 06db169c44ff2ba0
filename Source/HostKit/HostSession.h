#pragma once

#include "HostKit/HostService.h"
#include "Platform/Unix/PortFolder.h"
#include "Platform/Unix/PortWatcher.h"
#include "Platform/Unix/RuntimeKeeper.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/VolumeFile.h"

#include <CorvidHostKit/Application.h>

#include <memory>
#include <string>

namespace corvid::hostkit {

/// A HostService among the other processes of this user: it serves the extensions that are there,
/// and is found by those that come.
class HostSession {
public:
    /// `folder` as in Host's constructor. `ports` carries the messages, and `portFolder` is where
    /// it keeps the names; both are not owned, nor is `application`. Throws Error when there is no
    /// such folder.
    HostSession(const std::string& folder, Application& application, MessagePortService& ports,
                PortFolder& portFolder);
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    /// Begins to serve; members of the application may be called from here on. Throws Error for
    /// the reasons that Host's constructor gives. Once.
    void open();

    HostService& service() { return service_; }
    const HostService& service() const { return service_; }

private:
    void publishVolume();

    PortFolder& portFolder_;
    std::unique_ptr<UnixDispatch> dispatch_;
    UnixDispatchQueue& queue_;
    DispatchQueue& watchQueue_; ///< that queue_ has one thing to wait for, which is quickest
    HostService service_;
    std::unique_ptr<VolumeFile::Publication> volume_;
    std::unique_ptr<PortWatcher> portWatcher_;
    std::unique_ptr<VolumeFile::Watcher> volumeWatcher_;
    std::unique_ptr<RuntimeKeeper> keeper_;
};

} // namespace corvid::hostkit
