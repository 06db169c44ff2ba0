#include "Extensions/FileManagers/Gtk/RedrawQueue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace corvid::gtk {
namespace {

using Reason = RedrawQueue::Reason;
using std::chrono::milliseconds;

class RedrawQueueTest : public ::testing::Test {
protected:
    void add(std::size_t count, Reason reason) {
        for (std::size_t i = 0; i < count; ++i) {
            queue.add("/v/" + std::to_string(added++), reason);
        }
    }
    std::size_t takeAll(milliseconds time) {
        std::size_t count = 0;
        while (!queue.take(begin + time).path.empty()) {
            ++count;
        }
        return count;
    }

    const RedrawQueue::Clock::time_point begin = RedrawQueue::Clock::now();
    RedrawQueue queue;
    std::size_t added = 0;
};

TEST_F(RedrawQueueTest, NothingIsDueWhenItIsEmpty) {
    EXPECT_EQ(queue.take(begin).path, "");
    EXPECT_FALSE(queue.due());
}

TEST_F(RedrawQueueTest, AnItemIsDrawnOnceHoweverOftenItChanges) {
    for (int i = 0; i < 3; ++i) {
        queue.add("/v/a", Reason::changed);
        queue.add("/v/b", Reason::cameIntoView);
    }
    queue.add("/v/b", Reason::changed);
    EXPECT_EQ(queue.take(begin).path, "/v/b");
    EXPECT_EQ(queue.take(begin).path, "/v/a");
    EXPECT_EQ(queue.take(begin).path, "");
    queue.add("/v/a", Reason::changed);
    EXPECT_EQ(queue.take(begin).path, "/v/a");
}

TEST_F(RedrawQueueTest, SaysWhyAnItemIsDrawn) {
    queue.add("/v/a", Reason::changed);
    queue.add("/v/b", Reason::firstBadge);
    queue.add("/v/c", Reason::cameIntoView);
    EXPECT_EQ(queue.take(begin).reason, Reason::firstBadge);
    EXPECT_EQ(queue.take(begin).reason, Reason::cameIntoView);
    EXPECT_EQ(queue.take(begin).reason, Reason::changed);
}

TEST_F(RedrawQueueTest, ChangesAreSpreadOut) {
    add(3 * RedrawQueue::kChangesAtOnce, Reason::changed);
    EXPECT_LE(*queue.due(), begin);
    EXPECT_EQ(takeAll(milliseconds(0)), RedrawQueue::kChangesAtOnce);
    EXPECT_EQ(*queue.due(), begin + RedrawQueue::kPeriod);
    EXPECT_EQ(takeAll(RedrawQueue::kPeriod - milliseconds(1)), 0u);
    EXPECT_EQ(takeAll(RedrawQueue::kPeriod), RedrawQueue::kChangesAtOnce);
    EXPECT_EQ(takeAll(10 * RedrawQueue::kPeriod), RedrawQueue::kChangesAtOnce);
    EXPECT_FALSE(queue.due());
}

TEST_F(RedrawQueueTest, WhatAppearsIsDrawnAtOnceAndFirst) {
    add(2 * RedrawQueue::kChangesAtOnce, Reason::changed);
    EXPECT_EQ(takeAll(milliseconds(0)), RedrawQueue::kChangesAtOnce);
    add(10'000, Reason::firstBadge);
    EXPECT_LE(*queue.due(), begin);
    EXPECT_EQ(takeAll(milliseconds(1)), 10'000u);
    EXPECT_EQ(*queue.due(), begin + RedrawQueue::kPeriod);
}

} // namespace
} // namespace corvid::gtk
