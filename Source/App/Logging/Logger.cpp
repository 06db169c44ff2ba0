#include "App/Logging/Logger.h"

#include "App/Reporting/AppReportingService.h"

namespace corvid {

namespace {
constexpr int kControllerLevel = 6;
} // namespace

void Logger::log(std::string_view message) {
    requiredReportingService().log(message, kControllerLevel);
}

} // namespace corvid
