#include "HostKit/PushLane.h"

#include "Platform/Fake/FakeMessagePortService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <string>
#include <vector>

namespace corvid::hostkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Answer = FakeMessagePortService::Answer;

PushLane::Payload payload(std::uint8_t byte) {
    return std::make_shared<const Bytes>(Bytes{byte});
}

std::chrono::steady_clock::time_point soon() {
    return std::chrono::steady_clock::now() + std::chrono::minutes(1);
}

class PushLaneTest : public ::testing::Test {
protected:
    std::vector<int> received() {
        const std::lock_guard lock(mutex_);
        return received_;
    }
    Answer receive(std::optional<ByteView> data) {
        const std::lock_guard lock(mutex_);
        received_.push_back(data->front());
        return {};
    }

    CallLog log_;
    FakeMessagePortService ports_{log_};
    std::mutex mutex_;
    std::vector<int> received_;
};

TEST_F(PushLaneTest, sendsInOrderWithASecondForEachDeadline) {
    ports_.serve("ext",
                 [this](std::int32_t, std::optional<ByteView> data) { return receive(data); });
    PushLane lane(ports_, "ext", [] {});
    lane.push("/a", payload(1));
    ASSERT_TRUE(lane.waitUntilSent(soon()));
    lane.push("/b", payload(2));
    ASSERT_TRUE(lane.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(1, 2));
    EXPECT_THAT(log_.lines(),
                ::testing::Contains(
                    "sendRequest ext id=3 bytes=1 send=1000ms receive=1000ms replyMode=none"));
}

TEST_F(PushLaneTest, onlyTheNewestOfAnItemWaits) {
    std::promise<void> arrived;
    std::promise<void> release;
    bool isFirst = true;
    ports_.serve("ext", [&, released = release.get_future().share()](std::int32_t,
                                                                     std::optional<ByteView> data) {
        if (std::exchange(isFirst, false)) {
            arrived.set_value();
            released.wait();
        }
        return receive(data);
    });
    PushLane lane(ports_, "ext", [] {});
    lane.push("/a", payload(1));
    arrived.get_future().wait();
    lane.push("/b", payload(2));
    lane.push("/a", payload(3));
    lane.push("/b", payload(4));
    EXPECT_FALSE(lane.waitUntilSent(std::chrono::steady_clock::now()));
    release.set_value();
    ASSERT_TRUE(lane.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(1, 4, 3));
}

TEST_F(PushLaneTest, failedPushIsSentAgain) {
    int failures = 2;
    ports_.serve("ext", [&](std::int32_t, std::optional<ByteView> data) {
        return failures-- > 0 ? Answer{SendStatus::sendTimeout, {}} : receive(data);
    });
    PushLane lane(ports_, "ext", [] {});
    lane.push("/a", payload(1));
    ASSERT_TRUE(lane.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(1));
}

TEST_F(PushLaneTest, newerPushTakesThePlaceOfAFailedOne) {
    std::promise<void> arrived;
    std::promise<void> release;
    bool isFirst = true;
    ports_.serve("ext", [&, released = release.get_future().share()](std::int32_t,
                                                                     std::optional<ByteView> data) {
        if (std::exchange(isFirst, false)) {
            arrived.set_value();
            released.wait();
            return Answer{SendStatus::sendTimeout, {}};
        }
        return receive(data);
    });
    PushLane lane(ports_, "ext", [] {});
    lane.push("/a", payload(1));
    arrived.get_future().wait();
    lane.push("/a", payload(2));
    release.set_value();
    ASSERT_TRUE(lane.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(2));
}

TEST_F(PushLaneTest, deadPortIsReportedOnceAndNothingWaits) {
    std::promise<void> dead;
    PushLane lane(ports_, "nobody", [&dead] { dead.set_value(); });
    lane.push("/a", payload(1));
    dead.get_future().wait();
    lane.push("/b", payload(2));
    EXPECT_TRUE(lane.waitUntilSent(soon()));
    EXPECT_THAT(ports_.sent(), IsEmpty());
}

TEST_F(PushLaneTest, stoppedLaneDropsWhatWaits) {
    ports_.serve("ext",
                 [this](std::int32_t, std::optional<ByteView> data) { return receive(data); });
    PushLane lane(ports_, "ext", [] { ADD_FAILURE() << "the port is alive"; });
    lane.stop();
    lane.push("/a", payload(1));
    EXPECT_TRUE(lane.waitUntilSent(soon()));
    EXPECT_THAT(received(), IsEmpty());
}

} // namespace
} // namespace corvid::hostkit
