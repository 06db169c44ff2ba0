#include "App/Reporting/LumberjackLoggingService.h"

#include "App/Reporting/CVDDLog.h"

#include <algorithm>

namespace corvid {

std::int32_t logFlagForLevel(int level) {
    return 1 << (std::clamp(level, 2, 6) - 2);
}

void LumberjackLoggingService::log(std::string_view message, int level) {
    CVDDLog::log(message, logFlagForLevel(level));
}

} // namespace corvid
