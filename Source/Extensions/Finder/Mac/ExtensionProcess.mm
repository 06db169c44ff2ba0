#import "Extensions/Finder/Mac/ExtensionProcess.h"

#import <Foundation/Foundation.h>

#include "App/Reporting/AppReportingService.h"
#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/LogSafety.h"
#include "Platform/Interfaces/Platform.h"
#include "Platform/Mac/MacBundle.h"
#include "Platform/Mac/MacDispatch.h"
#include "Platform/Mac/MacFileManager.h"
#include "Platform/Mac/MacFinderSyncController.h"
#include "Platform/Mac/MacMessagePortService.h"
#include "Platform/Mac/MacPasteboard.h"
#include "Platform/Mac/MacSystemLog.h"
#include "Platform/Unix/FatalSignals.h"
#include "Platform/Unix/UnixClock.h"
#include "Platform/Unix/UnixProcessInfo.h"

#include <optional>

namespace corvid {

namespace {

struct ExtensionProcess {
    UnixProcessInfo processInfo;
    MacFileManager fileManager;
    UnixClock clock;
    MacBundle mainBundle{[NSBundle mainBundle]};
    MacDispatch dispatch;
    MacMessagePortService messagePorts;
    MacSystemLog systemLog;
    MacPasteboard pasteboard;
    MacFinderSyncController finder;
    AppReportingService reporting;
    const Platform platform{processInfo, fileManager,  clock,     mainBundle,
                            dispatch,    messagePorts, systemLog, &pasteboard};

    std::optional<LogSafety> logSafety;

    ExtensionProcess() {
        setPlatform(&platform);
        FIFinderSyncController::setDefaultController(&finder);
        AppReportingService::setSharedReportingService(&reporting);
        logSafety.emplace();
        installFatalSignalHandler(CVDDLog::writeQueuedInSignalHandler);
    }
};

} // namespace

void wireExtensionProcess() {
    // Never destroyed: the queue of the message ports may still run when the process ends.
    [[maybe_unused]] static const ExtensionProcess& process = *new ExtensionProcess;
}

} // namespace corvid
