#include "App/Reporting/AppReportingService.h"

#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/LumberjackLoggingService.h"
#include "Tests/Support/RecordingReportingService.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace corvid {
namespace {

class NotingService final : public LoggingService {
public:
    NotingService(std::vector<std::string>& notes, std::string name)
        : notes_(notes), name_(std::move(name)) {}
    void log(std::string_view message, int level) override {
        notes_.push_back(name_ + " " + std::to_string(level) + " " + std::string(message));
    }

private:
    std::vector<std::string>& notes_;
    const std::string name_;
};

class NotingLogger final : public CVDDLogger {
public:
    explicit NotingLogger(std::vector<std::string>& notes) : notes_(notes) {}
    void logMessage(std::string_view message, std::int32_t flag) override {
        notes_.push_back(std::to_string(flag) + " " + std::string(message));
    }
    void flush() override { notes_.emplace_back("flush"); }
    std::string problem() const override { return {}; }
    void writeQueuedInSignalHandler() noexcept override { notes_.emplace_back("signal"); }

private:
    std::vector<std::string>& notes_;
};

TEST(AppReportingService, HandsALineToWhatIsAttachedInTheOrderOfAttaching) {
    AppReportingService service;
    std::vector<std::string> notes;
    const auto first = std::make_shared<NotingService>(notes, "first");
    const auto second = std::make_shared<NotingService>(notes, "second");

    service.log("nobody hears", 6);
    service.addLoggingService(second);
    service.addLoggingService(first);
    service.addLoggingService(second);
    service.log("", 6);
    service.removeLoggingService(second);
    service.removeLoggingService(second);
    service.log("line", 2);
    service.removeLoggingService(first);
    service.log("nobody hears", 6);

    EXPECT_EQ(notes, (std::vector<std::string>{"second 6 ", "first 6 ", "first 2 line"}));
}

TEST(AppReportingService, RemovingWhatWasNeverAttachedDoesNothing) {
    AppReportingService service;
    service.removeLoggingService(std::make_shared<LumberjackLoggingService>());
    service.removeLoggingService(nullptr);
}

TEST(AppReportingService, LinesAndAttachingMayComeFromAnyThread) {
    AppReportingService service;
    class Counting final : public LoggingService {
    public:
        void log(std::string_view, int) override { ++count; }
        std::atomic<int> count{0};
    };
    const auto counting = std::make_shared<Counting>();
    service.addLoggingService(counting);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&service] {
            const auto other = std::make_shared<Counting>();
            for (int line = 0; line < 1000; ++line) {
                service.addLoggingService(other);
                service.log("line", 5);
                service.removeLoggingService(other);
            }
            EXPECT_GE(other->count, 1000);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counting->count, 4000);
}

TEST(AppReportingServiceDeathTest, AMissingSharedServiceIsFatal) {
    ASSERT_EQ(AppReportingService::sharedReportingService(), nullptr);
    EXPECT_DEATH(requiredReportingService(), "fatal: there is no shared reporting service");
}

TEST(LumberjackLoggingService, EveryLevelHasOneOfTheFiveBits) {
    const struct {
        int level;
        std::int32_t flag;
    } cases[] = {
        {-2147483647 - 1, 1}, {0, 1}, {1, 1}, {2, 1}, {3, 2}, {4, 4}, {5, 8}, {6, 16}, {7, 16},
        {2147483647, 16}};
    for (const auto& one : cases) {
        EXPECT_EQ(logFlagForLevel(one.level), one.flag) << one.level;
    }
}

TEST(LumberjackLoggingService, PassesLinesToTheLoggersRegisteredForTheirLevel) {
    std::vector<std::string> all;
    std::vector<std::string> failures;
    CVDDLog::addLogger(std::make_shared<NotingLogger>(all), 31);
    CVDDLog::addLogger(std::make_shared<NotingLogger>(failures), 1);
    LumberjackLoggingService service;
    service.log("failed", 2);
    service.log("trace", 5);
    service.log("controller", 6);
    CVDDLog::flushLog();
    CVDDLog::writeQueuedInSignalHandler();
    CVDDLog::writeQueuedInSignalHandler();
    CVDDLog::removeAllLoggers();
    service.log("nobody hears", 2);

    EXPECT_EQ(all, (std::vector<std::string>{"1 failed", "8 trace", "16 controller", "flush",
                                             "signal", "flush"}));
    EXPECT_EQ(failures, (std::vector<std::string>{"1 failed", "flush", "signal", "flush"}));
}

} // namespace
} // namespace corvid
