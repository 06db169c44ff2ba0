#include "HostKit/PushSenders.h"

#include "Platform/Fake/FakeMessagePortService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace corvid::hostkit {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Answer = FakeMessagePortService::Answer;

PushLane::PushRef push(const std::string& path, std::uint8_t byte) {
    return std::make_shared<const PushLane::Push>(PushLane::Push{path, Bytes{byte}});
}

std::chrono::steady_clock::time_point soon() {
    return std::chrono::steady_clock::now() + std::chrono::minutes(1);
}

std::size_t threadCount() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                      std::filesystem::directory_iterator()));
}

class PushSendersTest : public ::testing::Test {
protected:
    /// Waits for what the threads bring about; only a test that fails waits in vain.
    template <class Condition>
    void waitUntil(Condition condition) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, condition);
    }
    void note(std::vector<std::string>& list, const std::string& text) {
        const std::lock_guard lock(mutex_);
        list.push_back(text);
        changed_.notify_all();
    }

    /// Serves `port` as an extension that takes what it is sent.
    void serve(const std::string& port) {
        ports_.serve(port,
                     [this](std::int32_t, std::optional<ByteView> data) { return received(data); });
        EXPECT_EQ(senders_.add(port), PushSenders::Added::isNew);
    }
    Answer received(std::optional<ByteView> data) {
        const std::lock_guard lock(mutex_);
        received_.push_back(data->front());
        changed_.notify_all();
        return {};
    }
    std::vector<int> received() {
        const std::lock_guard lock(mutex_);
        return received_;
    }

    /// Serves `port` as an extension that hangs: each send waits until the test ends it.
    void serveHung(const std::string& port) {
        ports_.serve(port, [this](std::int32_t, std::optional<ByteView>) {
            std::unique_lock lock(mutex_);
            const std::size_t mine = hangCount_++;
            changed_.notify_all();
            changed_.wait(lock, [&] { return mine < endedHangs_; });
            return Answer{SendStatus::sendTimeout, {}};
        });
        EXPECT_EQ(senders_.add(port), PushSenders::Added::isNew);
    }
    void endHangs(std::size_t upTo) {
        const std::lock_guard lock(mutex_);
        endedHangs_ = upTo;
        changed_.notify_all();
    }

    CallLog log_;
    FakeMessagePortService ports_{log_};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> received_;
    std::vector<std::string> gone_;
    std::vector<std::string> problems_;
    std::size_t hangCount_ = 0;
    std::size_t endedHangs_ = 0;
    PushSenders senders_{ports_, [this](const std::string& port) { note(gone_, port); },
                         [this](const std::string& text) { note(problems_, text); }, 1'000};
};

TEST_F(PushSendersTest, sendsInOrderWithASecondForEachDeadline) {
    serve("ext");
    senders_.push(push("/a", 1));
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    senders_.push(push("/b", 2));
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(1, 2));
    EXPECT_THAT(log_.lines(),
                Contains("sendRequest ext id=3 bytes=1 send=1000ms receive=1000ms replyMode=none"));
}

TEST_F(PushSendersTest, onlyTheNewestOfAnItemWaits) {
    serveHung("ext");
    senders_.push(push("/a", 1));
    waitUntil([this] { return hangCount_ == 1; });
    senders_.push(push("/b", 2));
    senders_.push(push("/a", 3));
    senders_.push(push("/b", 4));
    EXPECT_FALSE(senders_.waitUntilSent(std::chrono::steady_clock::now()));
    ports_.serve("ext",
                 [this](std::int32_t, std::optional<ByteView> data) { return received(data); });
    endHangs(1);
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(4, 3))
        << "the first failed, and a newer one took its place";
}

TEST_F(PushSendersTest, failedPushIsSentAgain) {
    int failures = 2;
    ports_.serve("ext", [&](std::int32_t, std::optional<ByteView> data) {
        if (failures-- > 1) {
            throw std::bad_alloc();
        }
        return failures == 0 ? Answer{SendStatus::sendTimeout, {}} : received(data);
    });
    senders_.add("ext");
    senders_.push(push("/a", 1));
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(1));
}

TEST_F(PushSendersTest, pushesWaitWhileThePortCannotBeReached) {
    serve("ext");
    ports_.hideRemotes("too many open files");
    senders_.push(push("/a", 1));
    senders_.push(push("/b", 2));
    EXPECT_FALSE(
        senders_.waitUntilSent(std::chrono::steady_clock::now() + 3 * PushSenders::kFirstPause));
    senders_.push(push("/a", 3));
    ports_.hideRemotes("");
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(received(), ::testing::UnorderedElementsAre(3, 2));
    EXPECT_THAT(gone_, IsEmpty());
}

TEST_F(PushSendersTest, portThatIsGoneIsReportedOnceAndNothingWaits) {
    senders_.add("nobody");
    senders_.push(push("/a", 1));
    waitUntil([this] { return !gone_.empty(); });
    senders_.push(push("/b", 2));
    EXPECT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(ports_.sent(), IsEmpty());
    EXPECT_THAT(gone_, ElementsAre("nobody"));
    EXPECT_TRUE(senders_.removeGone("nobody"));
    EXPECT_FALSE(senders_.remove("nobody"));
}

TEST_F(PushSendersTest, portThatCameBackIsNotRemoved) {
    senders_.add("ext");
    senders_.push(push("/a", 1));
    waitUntil([this] { return !gone_.empty(); });
    ports_.serve("ext",
                 [this](std::int32_t, std::optional<ByteView> data) { return received(data); });
    EXPECT_EQ(senders_.add("ext"), PushSenders::Added::isKnown);
    EXPECT_FALSE(senders_.removeGone("ext"));
    senders_.push(push("/b", 2));
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(received(), ElementsAre(2));
}

TEST_F(PushSendersTest, stoppedSendersDropWhatWaits) {
    serve("ext");
    senders_.stop();
    senders_.push(push("/a", 1));
    EXPECT_TRUE(senders_.waitUntilSent(soon()));
    EXPECT_THAT(received(), IsEmpty());
    EXPECT_EQ(senders_.add("other"), PushSenders::Added::isStopped);
}

TEST_F(PushSendersTest, fewThreadsServeManyLanes) {
    const std::size_t before = threadCount();
    for (std::size_t i = 0; i < PushSenders::kMostLanes; ++i) {
        serveHung("ext " + std::to_string(i));
    }
    EXPECT_EQ(senders_.add("one more"), PushSenders::Added::isFull);
    senders_.push(push("/a", 1));
    waitUntil([this] { return hangCount_ == PushSenders::kMostThreads; });
    EXPECT_EQ(threadCount(), before + PushSenders::kMostThreads);
    senders_.remove("ext 0");
    EXPECT_EQ(senders_.add("one more"), PushSenders::Added::isNew);
    endHangs(~std::size_t{0});
}

TEST_F(PushSendersTest, hungExtensionsLeaveAThreadToThoseThatAnswer) {
    for (std::size_t i = 0; i < PushSenders::kMostThreads; ++i) {
        serveHung("hung " + std::to_string(i));
    }
    senders_.push(push("/a", 1));
    waitUntil([this] { return hangCount_ == PushSenders::kMostThreads; });
    serve("lively");
    senders_.push(push("/b", 2));
    EXPECT_THAT(received(), IsEmpty()) << "all threads wait for extensions that just began to hang";
    endHangs(PushSenders::kMostThreads);
    waitUntil([this] {
        return hangCount_ == 2 * PushSenders::kMostThreads - 1 && received_.size() == 1;
    });
    for (std::uint8_t i = 3; i < 10; ++i) {
        senders_.push(push("/b", i));
        waitUntil([&] { return received_.back() == i; });
    }
    EXPECT_EQ(hangCount_, 2 * PushSenders::kMostThreads - 1) << "all but one thread hang again";
    endHangs(~std::size_t{0});
}

TEST_F(PushSendersTest, tooManyThatWaitLoseTheirOldest) {
    serveHung("hung");
    senders_.push(push("/first", 1));
    waitUntil([this] { return hangCount_ == 1; });
    serve("lively");
    for (int i = 0; i < 1'100; ++i) {
        senders_.push(push("/" + std::to_string(i), static_cast<std::uint8_t>(i % 200)));
        if (i % 50 == 0) {
            waitUntil([&] { return received_.size() == static_cast<std::size_t>(i + 1); });
        }
    }
    waitUntil([this] { return received_.size() == 1'100; });
    EXPECT_THAT(problems_, ElementsAre(::testing::AllOf(HasSubstr("more than 1000 badges wait"),
                                                        HasSubstr("hung"))));
    received_.clear();
    ports_.serve("hung",
                 [this](std::int32_t, std::optional<ByteView> data) { return received(data); });
    endHangs(1);
    ASSERT_TRUE(senders_.waitUntilSent(soon()));
    // The first was on its way, failed and was put back; up to 50 more lay in the lively lane.
    EXPECT_GE(received().size(), 950U);
    EXPECT_LE(received().size(), 1'001U);
    EXPECT_EQ(received().back(), 1'099 % 200);
}

} // namespace
} // namespace corvid::hostkit
