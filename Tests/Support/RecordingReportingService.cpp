#include "Tests/Support/RecordingReportingService.h"

#include <utility>

namespace corvid {

RecordingReportingService::RecordingReportingService(CallLog* calls)
    : calls_(calls), previous_(setSharedReportingService(this)) {}

RecordingReportingService::~RecordingReportingService() {
    setSharedReportingService(previous_);
}

std::vector<RecordingReportingService::Line> RecordingReportingService::lines() const {
    const MutexLock lock(mutex_);
    return lines_;
}

std::vector<std::string> RecordingReportingService::messages() const {
    std::vector<std::string> messages;
    for (Line& line : lines()) {
        messages.push_back(std::move(line.message));
    }
    return messages;
}

std::vector<std::shared_ptr<LoggingService>> RecordingReportingService::attached() const {
    const MutexLock lock(mutex_);
    return attached_;
}

void RecordingReportingService::clear() {
    const MutexLock lock(mutex_);
    lines_.clear();
}

void RecordingReportingService::log(std::string_view message, int level) {
    if (calls_ != nullptr) {
        calls_->add("log " + std::to_string(level) + " " + std::string(message));
    }
    {
        const MutexLock lock(mutex_);
        lines_.push_back({level, std::string(message)});
    }
    AppReportingService::log(message, level);
}

void RecordingReportingService::addLoggingService(std::shared_ptr<LoggingService> service) {
    if (calls_ != nullptr) {
        calls_->add("addLoggingService");
    }
    {
        const MutexLock lock(mutex_);
        attached_.push_back(service);
    }
    AppReportingService::addLoggingService(std::move(service));
}

void RecordingReportingService::removeLoggingService(
    const std::shared_ptr<LoggingService>& service) {
    if (calls_ != nullptr) {
        calls_->add("removeLoggingService");
    }
    {
        const MutexLock lock(mutex_);
        std::erase(attached_, service);
    }
    AppReportingService::removeLoggingService(service);
}

} // namespace corvid
