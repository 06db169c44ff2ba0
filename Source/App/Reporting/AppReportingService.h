#pragma once

#include "Core/Base/Mutex.h"

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

namespace corvid {

/// Somewhere that log lines go.
class LoggingService {
public:
    virtual ~LoggingService() = default;
    /// Takes one message at a level (2 failure, 5 trace, 6 controller). Any thread.
    virtual void log(std::string_view message, int level) = 0;
};

/// Hands every log line of the process to the logging services that are attached at that moment.
/// Any thread.
class AppReportingService {
public:
    /// The process's own; null when `main` has not set one. Callers treat that as fatal.
    static AppReportingService* sharedReportingService();
    /// Sets it and returns the previous one. Not owned. For `main` and for tests.
    static AppReportingService* setSharedReportingService(AppReportingService* service);

    virtual ~AppReportingService() = default;
    /// Hands `message` to each attached service, in the order in which they were attached.
    virtual void log(std::string_view message, int level);
    /// Attaches `service`; nothing happens when it is attached already. Shares it.
    virtual void addLoggingService(std::shared_ptr<LoggingService> service);
    /// Detaches `service`; nothing happens when it is not attached. A line that another thread is
    /// just handing out may still reach it.
    virtual void removeLoggingService(const std::shared_ptr<LoggingService>& service);

private:
    using Services = std::vector<std::shared_ptr<LoggingService>>;

    mutable Mutex mutex_;
    /// Replaced as a whole, so that log() calls the services without holding the mutex.
    std::shared_ptr<const Services>
        services_ CORVID_GUARDED_BY(mutex_) = std::make_shared<const Services>();
    /// Spares a line the mutex while nothing is attached, which is how the extension usually runs.
    std::atomic<bool> hasServices_{false};
};

/// The shared reporting service, which must exist: fatal when it does not.
AppReportingService& requiredReportingService();

} // namespace corvid
