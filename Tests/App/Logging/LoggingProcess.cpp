// A process that logs as the extension does and then ends in the way that the test wants. Each
// argument is a step:
//
//     log:THREADS:LINES  that many threads log that many lines each, "thread T line N"
//     log-forever        this thread logs "thread 9 line N" and does not stop
//     say:WORD           writes a line to standard output
//     wait               reads a line from standard input
//     flush, abort, segv, overflow, overflow-thread, throw, fatal, exit, return

#include "App/Logging/CVMALogFileManager.h"
#include "App/Logging/Logger.h"
#include "App/Reporting/AppReportingService.h"
#include "App/Reporting/CVDDFileLogger.h"
#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/LogSafety.h"
#include "App/Reporting/LumberjackLoggingService.h"
#include "Core/Base/Fatal.h"
#include "Platform/Unix/ExitDeadline.h"
#include "Platform/Unix/FatalSignals.h"
#include "Tests/Support/RealPlatform.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvid {
namespace {

void logLines(int thread, int count) {
    const std::string start = "thread " + std::to_string(thread) + " line ";
    for (int line = 0; count < 0 || line < count; ++line) {
        Logger::log(start + std::to_string(line));
    }
}

void logOnThreads(const std::string& numbers) {
    std::size_t colon = 0;
    const int threadCount = std::stoi(numbers, &colon);
    const int lineCount = std::stoi(numbers.substr(colon + 1));
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back(logLines, thread, lineCount);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Called through a variable and with work left to do after the call, so that no compiler makes a
// loop of it.
int overflow(volatile int* deeper);
int (*volatile goDeeper)(volatile int*) = overflow;
int overflow(volatile int* deeper) {
    volatile int here[1024] = {*deeper};
    return goDeeper(here) + here[*deeper & 1023];
}

void crashOnNull() {
    volatile int* volatile null = nullptr;
    *null = 1;
}

/// False when the process shall return from `main`.
bool run(const std::string& step) {
    volatile int zero = 0;
    if (step.starts_with("log:")) {
        logOnThreads(step.substr(4));
    } else if (step == "log-forever") {
        logLines(9, -1);
    } else if (step.starts_with("say:")) {
        std::puts(step.c_str() + 4);
        std::fflush(stdout);
    } else if (step == "wait") {
        std::getchar();
    } else if (step == "flush") {
        CVDDLog::flushLog();
    } else if (step == "abort") {
        std::abort();
    } else if (step == "segv") {
        crashOnNull();
    } else if (step == "overflow") {
        overflow(&zero);
    } else if (step == "overflow-thread") {
        std::thread([&zero] {
            const SignalStack stack;
            overflow(&zero);
        }).join();
    } else if (step == "throw") {
        throw std::runtime_error("nobody catches this");
    } else if (step == "fatal") {
        fatal("a state that cannot be");
    } else if (step == "exit") {
        std::exit(0);
    } else if (step == "return") {
        return false;
    } else {
        std::fprintf(stderr, "unknown step %s\n", step.c_str());
        std::exit(2);
    }
    return true;
}

} // namespace
} // namespace corvid

// Its faults are meant: a sanitizer leaves them to the program. The sanitizers look for these
// names. NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_abort=0:use_sigaltstack=0";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_abort=0:use_sigaltstack=0";
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

int main(int argc, char** argv) {
    using namespace corvid;
    {
        // Never destroyed, as in the extension.
        static const auto& system = *new RealPlatform;
        ExitDeadline::install();
        const LogSafety safety;
        installFatalSignalHandler(CVDDLog::writeQueuedInSignalHandler,
                                  {ExitDeadline::armForSignal, ExitDeadline::letGo});
        AppReportingService service;
        AppReportingService::setSharedReportingService(&service);
        const auto manager = CVMALogFileManager::withBaseName(
            "CVMAExt_" + std::to_string(system.processInfo.processIdentifier()));
        service.addLoggingService(std::make_shared<LumberjackLoggingService>());
        for (int i = 1; i < argc && run(argv[i]); ++i) {
        }
        ExitDeadline::arm(0);
    }
    if (CVDDFileLogger::isThreadLeftBehind()) {
        ExitDeadline::letGo();
    }
    return 0;
}
