#pragma once

#include "App/Reporting/AppReportingService.h"

#include <cstdint>

namespace corvid {

/// The bit of LogFlags that a level of the reporting service is logged at:
///
///     2 (failure) and below   1   error
///     3                       2   warn
///     4                       4   info
///     5 (trace)               8   debug
///     6 (controller) and up   16  verbose
///
/// So every level is written by a logger that is registered at the mask 31.
std::int32_t logFlagForLevel(int level);

/// Passes what the reporting service hands out on to the loggers of CVDDLog. Any thread.
class LumberjackLoggingService final : public LoggingService {
public:
    void log(std::string_view message, int level) override;
};

} // namespace corvid
