#pragma once

#include "Platform/Interfaces/Platform.h"
#include "Platform/Unix/UnixBundle.h"
#include "Platform/Unix/UnixClock.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixFileManager.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/UnixProcessInfo.h"
#include "Platform/Unix/UnixSystemLog.h"

namespace corvid {

/// The machine itself, with the extension's bundle identifier, as the installed platform for the
/// life of the object.
class RealPlatform {
public:
    RealPlatform() = default;
    ~RealPlatform() { setPlatform(previous_); }
    RealPlatform(const RealPlatform&) = delete;
    RealPlatform& operator=(const RealPlatform&) = delete;

    UnixProcessInfo processInfo;
    UnixFileManager fileManager;
    UnixClock clock;
    UnixBundle mainBundle{"com.corvid.desktop.widget.FinderExt"};
    UnixSystemLog systemLog;
    UnixDispatch dispatch;
    UnixMessagePortService messagePorts;

private:
    const Platform platform_{processInfo, fileManager,  clock,     mainBundle,
                             dispatch,    messagePorts, systemLog, nullptr};
    const Platform* const previous_ = setPlatform(&platform_);
};

} // namespace corvid
