#include "App/Logging/Logger.h"

#include "Tests/Support/RecordingReportingService.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

TEST(Logger, HandsTheMessageOnAsItIsAtLevelSix) {
    const RecordingReportingService service;
    Logger::log("<UI> two  blanks\n");
    Logger::log("");
    EXPECT_EQ(service.lines(),
              (std::vector<RecordingReportingService::Line>{{6, "<UI> two  blanks\n"}, {6, ""}}));
}

TEST(LoggerDeathTest, AMissingReportingServiceIsFatal) {
    EXPECT_DEATH(Logger::log("line"), "fatal: there is no shared reporting service");
}

} // namespace
} // namespace corvid
