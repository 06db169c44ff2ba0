#include "Extensions/FileManagers/Link/SendMonitor.h"

#include "Platform/Fake/CallLog.h"
#include "Platform/Fake/FakeClock.h"
#include "Platform/Fake/FakeMessagePortService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvid::link {
namespace {

constexpr char kPort[] = "com.corvid.desktop.widget";

class SendMonitorTest : public ::testing::Test {
protected:
    CallLog calls_;
    FakeMessagePortService service_{calls_};
    FakeClock clock_;
    SendMonitor monitor_{service_, clock_};
};

TEST_F(SendMonitorTest, HostWhoseNameNobodyHasIsAbsent) {
    EXPECT_EQ(monitor_.createRemote(kPort), nullptr);
    EXPECT_EQ(SendMonitor::takeOutcome(), SendOutcome::hostAbsent);
    EXPECT_EQ(monitor_.figures().lastFailure, "");
}

// As absent it would never be asked again: nobody comes when descriptors do.
TEST_F(SendMonitorTest, HostThatCannotBeReachedHasFailedForNow) {
    service_.serve(kPort, [](auto, auto) { return FakeMessagePortService::Answer{}; });
    service_.hideRemotes("/run/ports/x: Too many open files");
    EXPECT_EQ(monitor_.createRemote(kPort), nullptr);
    EXPECT_EQ(SendMonitor::takeOutcome(), SendOutcome::failed);
    EXPECT_EQ(monitor_.figures().lastFailure,
              "The host application cannot be reached: /run/ports/x: Too many open files.");
    service_.hideRemotes("");
    EXPECT_NE(monitor_.createRemote(kPort), nullptr);
}

} // namespace
} // namespace corvid::link
