#pragma once

#include "App/Reporting/AppReportingService.h"
#include "Platform/Fake/CallLog.h"

#include <string>
#include <vector>

namespace corvid {

/// The shared reporting service for the life of the object, which keeps every line that it is
/// given. What is attached to it gets the lines too. Any thread.
class RecordingReportingService final : public AppReportingService {
public:
    struct Line {
        int level;
        std::string message;
        friend bool operator==(const Line&, const Line&) = default;
    };

    /// With `calls`, each line also goes there as `log LEVEL MESSAGE`, and attaching and
    /// detaching as `addLoggingService` and `removeLoggingService`, so that their order among the
    /// calls of the fakes is seen.
    explicit RecordingReportingService(CallLog* calls = nullptr);
    ~RecordingReportingService() override;

    std::vector<Line> lines() const;
    /// The messages alone.
    std::vector<std::string> messages() const;
    /// The services attached now.
    std::vector<std::shared_ptr<LoggingService>> attached() const;
    void clear();

    void log(std::string_view message, int level) override;
    void addLoggingService(std::shared_ptr<LoggingService> service) override;
    void removeLoggingService(const std::shared_ptr<LoggingService>& service) override;

private:
    CallLog* const calls_;
    AppReportingService* const previous_;
    mutable Mutex mutex_;
    std::vector<Line> lines_ CORVID_GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<LoggingService>> attached_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
