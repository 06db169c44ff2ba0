#include "HostKit/PushLane.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace corvid::hostkit {
namespace {

PushLane::PushRef push(const std::string& path, std::uint8_t byte) {
    return std::make_shared<const PushLane::Push>(PushLane::Push{path, Bytes{byte}});
}

int taken(PushLane& lane) {
    const PushLane::PushRef first = lane.takeFirst();
    return first != nullptr ? first->payload.front() : 0;
}

TEST(PushLane, keepsTheNewestOfAnItemInThePlaceOfTheFirst) {
    PushLane lane;
    lane.add(push("/a", 1));
    lane.add(push("/b", 2));
    lane.add(push("/a", 3));
    EXPECT_EQ(lane.size(), 2U);
    EXPECT_EQ(taken(lane), 3);
    EXPECT_EQ(taken(lane), 2);
    EXPECT_EQ(taken(lane), 0);
    EXPECT_EQ(lane.size(), 0U);
}

TEST(PushLane, takesBackWhatNothingNewerReplaces) {
    PushLane lane;
    lane.add(push("/a", 1));
    lane.add(push("/b", 2));
    const PushLane::PushRef first = lane.takeFirst();
    lane.putBack(first);
    EXPECT_EQ(taken(lane), 1);
    lane.add(push("/a", 3));
    lane.putBack(first);
    EXPECT_EQ(lane.size(), 2U);
    EXPECT_EQ(taken(lane), 2);
    EXPECT_EQ(taken(lane), 3);
}

TEST(PushLane, canBeUsedAgainOnceCleared) {
    PushLane lane;
    lane.add(push("/a", 1));
    lane.clear();
    EXPECT_EQ(lane.size(), 0U);
    lane.add(push("/a", 2));
    EXPECT_EQ(taken(lane), 2);
}

} // namespace
} // namespace corvid::hostkit
