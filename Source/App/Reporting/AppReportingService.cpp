#include "App/Reporting/AppReportingService.h"

#include "Core/Base/Fatal.h"

#include <algorithm>
#include <utility>

namespace corvid {

namespace {
std::atomic<AppReportingService*> sharedSlot{nullptr};
} // namespace

AppReportingService* AppReportingService::sharedReportingService() {
    return sharedSlot.load(std::memory_order_acquire);
}

AppReportingService* AppReportingService::setSharedReportingService(AppReportingService* service) {
    return sharedSlot.exchange(service);
}

void AppReportingService::log(std::string_view message, int level) {
    if (!hasServices_.load(std::memory_order_acquire)) {
        return;
    }
    std::shared_ptr<const Services> services;
    {
        const MutexLock lock(mutex_);
        services = services_;
    }
    for (const std::shared_ptr<LoggingService>& service : *services) {
        service->log(message, level);
    }
}

void AppReportingService::addLoggingService(std::shared_ptr<LoggingService> service) {
    const MutexLock lock(mutex_);
    if (std::find(services_->begin(), services_->end(), service) != services_->end()) {
        return;
    }
    auto services = std::make_shared<Services>(*services_);
    services->push_back(std::move(service));
    services_ = std::move(services);
    hasServices_.store(true, std::memory_order_release);
}

void AppReportingService::removeLoggingService(const std::shared_ptr<LoggingService>& service) {
    const MutexLock lock(mutex_);
    auto services = std::make_shared<Services>(*services_);
    std::erase(*services, service);
    services_ = std::move(services);
    hasServices_.store(!services_->empty(), std::memory_order_release);
}

AppReportingService& requiredReportingService() {
    AppReportingService* service = AppReportingService::sharedReportingService();
    if (service == nullptr) {
        fatal("there is no shared reporting service");
    }
    return *service;
}

} // namespace corvid
