// What a log line costs the thread that logs it: with the logs on, and with them off.

#include "App/Logging/CVMALogFileManager.h"
#include "App/Logging/Logger.h"
#include "App/Reporting/AppReportingService.h"
#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/LogSafety.h"
#include "App/Reporting/LumberjackLoggingService.h"
#include "Benchmarks/Figure.h"
#include "Tests/Support/RealPlatform.h"
#include "Tests/Support/TemporaryFolder.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace corvid {
namespace {

using Clock = std::chrono::steady_clock;

const std::string kLine = "<UI> Requesting badge for url = /Volumes/Corvid/Projects/Quarterly "
                          "report/Figures and tables 2026.xlsx";

double nanoseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::nano>(duration).count();
}

/// Microseconds of single lines, in bursts that the queue has room for.
void measureOn(int bursts) {
    constexpr int kBurst = 500;
    std::vector<double> samples;
    samples.reserve(static_cast<std::size_t>(bursts) * kBurst);
    for (int burst = 0; burst < bursts; ++burst) {
        for (int line = 0; line < kBurst; ++line) {
            const auto start = Clock::now();
            Logger::log(kLine);
            samples.push_back(nanoseconds(Clock::now() - start) / 1000);
        }
        CVDDLog::flushLog();
    }
    std::sort(samples.begin(), samples.end());
    bench::print({"log_line_on_p50_us", samples[samples.size() / 2], "us", 2.0});
    bench::print({"log_line_on_p99_us", samples[samples.size() * 99 / 100], "us", std::nullopt});
}

/// Nanoseconds of a line that nobody takes; the median of rounds that are too short for the
/// scheduler to come between.
void measureOff(int rounds) {
    constexpr int kLines = 1000;
    std::vector<double> samples;
    for (int round = 0; round < rounds; ++round) {
        const auto start = Clock::now();
        for (int line = 0; line < kLines; ++line) {
            Logger::log(kLine);
        }
        samples.push_back(nanoseconds(Clock::now() - start) / kLines);
    }
    std::sort(samples.begin(), samples.end());
    bench::print({"log_line_off_ns", samples[samples.size() / 2], "ns", 20.0});
}

} // namespace
} // namespace corvid

int main(int argc, char** argv) {
    using namespace corvid;
    const bool isQuick = bench::isQuick(argc, argv);
    const TemporaryFolder state;
    setenv("XDG_STATE_HOME", state.path().c_str(), 1);
    const RealPlatform system;
    const LogSafety safety;
    AppReportingService service;
    AppReportingService::setSharedReportingService(&service);
    measureOff(isQuick ? 500 : 5000);

    const auto manager = CVMALogFileManager::withBaseName("CVMAExt_benchmark");
    service.addLoggingService(std::make_shared<LumberjackLoggingService>());
    measureOn(isQuick ? 20 : 400);
    return 0;
}
