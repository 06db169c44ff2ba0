#include "Tests/Conformance/MessagePortServiceConformance.h"

#include "Core/Base/Mutex.h"
#include "Tests/Support/BytesOf.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <gmock/gmock.h>
#include <thread>
#include <vector>

namespace corvid::test {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// Generous: a test that waits this long fails.
constexpr auto kLong = 20s;
constexpr auto kTimeout = 10000ms;

std::string text(ByteView data) {
    return {data.begin(), data.end()};
}

SendStatus post(MessagePortService& service, const std::string& name, std::int32_t messageID,
                ByteView data) {
    const MessagePortRef remote = service.createRemote(name);
    if (remote == nullptr) {
        return SendStatus::isInvalid;
    }
    return service.sendRequest(*remote, messageID, data, kTimeout, kTimeout, std::nullopt, nullptr);
}

SendStatus ask(MessagePortService& service, const std::string& name, std::int32_t messageID,
               ByteView data, std::optional<Bytes>& reply) {
    const MessagePortRef remote = service.createRemote(name);
    if (remote == nullptr) {
        return SendStatus::isInvalid;
    }
    return service.sendRequest(*remote, messageID, data, kTimeout, kTimeout, name + ".replymode",
                               &reply);
}

MessagePortCallback noReply() {
    return [](MessagePort&, std::int32_t, std::optional<ByteView>) { return std::nullopt; };
}

/// Keeps what a port was given, and lets a test wait for it.
class Inbox {
public:
    MessagePortCallback callback() {
        return [this](MessagePort&, std::int32_t messageID,
                      std::optional<ByteView> data) -> std::optional<Bytes> {
            const MutexLock lock(mutex_);
            messages_.push_back(std::to_string(messageID) + ":" +
                                (data ? text(*data) : "(no data)"));
            changed_.notify_all();
            return std::nullopt;
        };
    }
    std::vector<std::string> waitFor(std::size_t count) {
        MutexLock lock(mutex_);
        const auto end = std::chrono::steady_clock::now() + kLong;
        while (messages_.size() < count && lock.waitUntil(changed_, end)) {
        }
        return messages_;
    }
    std::size_t count() {
        const MutexLock lock(mutex_);
        return messages_.size();
    }

private:
    Mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> messages_;
};

} // namespace

TEST_P(MessagePortServiceConformance, remoteOfANameThatNobodyServesIsAbsent) {
    EXPECT_EQ(service().createRemote("nobody"), nullptr);
}

TEST_P(MessagePortServiceConformance, presenceFollowsTheOwnerOfAName) {
    using State = PortPresence::State;
    EXPECT_EQ(service().presenceOf("watched").state, State::gone);
    EXPECT_EQ(service().presenceOf("").state, State::gone);
    auto local = service().createLocal("watched", noReply());
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(service().presenceOf("watched").state, State::served);
    EXPECT_EQ(service().presenceOf("watched").problem, "");
    local.reset();
    EXPECT_EQ(service().presenceOf("watched").state, State::gone);
}

TEST_P(MessagePortServiceConformance, namesOutsideTheBoundsAreAbsent) {
    EXPECT_EQ(service().createRemote(""), nullptr);
    EXPECT_EQ(service().createLocal("", noReply()), nullptr);
    const std::string tooLong(256, 'n');
    EXPECT_EQ(service().createRemote(tooLong), nullptr);
    EXPECT_EQ(service().createLocal(tooLong, noReply()), nullptr);
}

TEST_P(MessagePortServiceConformance, portsKnowTheirNames) {
    const auto local = service().createLocal("known", noReply());
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(local->name(), "known");
    const auto remote = service().createRemote("known");
    ASSERT_NE(remote, nullptr);
    EXPECT_EQ(remote->name(), "known");
}

TEST_P(MessagePortServiceConformance, aNameIsTakenOnce) {
    const auto first = service().createLocal("once", noReply());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(service().createLocal("once", noReply()), nullptr);
    EXPECT_NE(service().createLocal("Once", noReply()), nullptr);
}

TEST_P(MessagePortServiceConformance, aRequestIsAnswered) {
    const auto local = service().createLocal(
        "host", [](MessagePort& port, std::int32_t messageID, std::optional<ByteView> data) {
            return std::optional(
                bytesOf(port.name() + " " + std::to_string(messageID) + " " + text(*data)));
        });
    ASSERT_NE(local, nullptr);
    service().setDispatchQueue(*local, queue());
    std::optional<Bytes> reply;
    EXPECT_EQ(ask(service(), "host", -7, bytesOf("question"), reply), SendStatus::success);
    ASSERT_TRUE(reply);
    EXPECT_EQ(text(*reply), "host -7 question");
}

TEST_P(MessagePortServiceConformance, anAnswerWithoutDataLeavesTheReplyAlone) {
    const auto local = service().createLocal("mute", noReply());
    service().setDispatchQueue(*local, queue());
    std::optional<Bytes> reply = bytesOf("before");
    EXPECT_EQ(ask(service(), "mute", 1, bytesOf("question"), reply), SendStatus::success);
    EXPECT_EQ(text(*reply), "before");
}

TEST_P(MessagePortServiceConformance, anEmptyAnswerIsAnAnswer) {
    const auto local = service().createLocal(
        "empty", [](MessagePort&, std::int32_t, std::optional<ByteView>) { return Bytes(); });
    service().setDispatchQueue(*local, queue());
    std::optional<Bytes> reply = bytesOf("before");
    EXPECT_EQ(ask(service(), "empty", 1, bytesOf("question"), reply), SendStatus::success);
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->empty());
}

TEST_P(MessagePortServiceConformance, aSendWithoutReplyNeverFillsTheReply) {
    std::promise<void> called;
    const auto local =
        service().createLocal("oneway", [&](MessagePort&, std::int32_t, std::optional<ByteView>) {
            called.set_value();
            return std::optional(bytesOf("unasked"));
        });
    service().setDispatchQueue(*local, queue());
    const auto remote = service().createRemote("oneway");
    ASSERT_NE(remote, nullptr);
    std::optional<Bytes> reply = bytesOf("before");
    EXPECT_EQ(
        service().sendRequest(*remote, 1, bytesOf("x"), kTimeout, kTimeout, std::nullopt, &reply),
        SendStatus::success);
    ASSERT_EQ(called.get_future().wait_for(kLong), std::future_status::ready);
    EXPECT_EQ(text(*reply), "before");
}

TEST_P(MessagePortServiceConformance, aMessageWithoutByteBufferIsToldFromAnEmptyOne) {
    Inbox inbox;
    const auto local = service().createLocal("buffers", inbox.callback());
    service().setDispatchQueue(*local, queue());
    const std::uint8_t somewhere = 0;
    EXPECT_EQ(post(service(), "buffers", 1, ByteView()), SendStatus::success);
    EXPECT_EQ(post(service(), "buffers", 2, ByteView(&somewhere, 0)), SendStatus::success);
    EXPECT_THAT(inbox.waitFor(2), ElementsAre("1:(no data)", "2:"));
}

TEST_P(MessagePortServiceConformance, messagesWaitUntilThereIsAQueueAndKeepTheirOrder) {
    Inbox inbox;
    const auto local = service().createLocal("later", inbox.callback());
    std::vector<std::string> expected;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(post(service(), "later", i, bytesOf("m")), SendStatus::success);
        expected.push_back(std::to_string(i) + ":m");
    }
    EXPECT_EQ(inbox.count(), 0U);
    service().setDispatchQueue(*local, queue());
    EXPECT_EQ(inbox.waitFor(20), expected);
}

TEST_P(MessagePortServiceConformance, orderIsThatOfTheSendsWhicheverRemoteIsUsed) {
    Inbox inbox;
    const auto local = service().createLocal("order", inbox.callback());
    service().setDispatchQueue(*local, queue());
    std::vector<std::string> expected;
    for (int i = 0; i < 300; i += 3) {
        const auto first = service().createRemote("order");
        const auto second = service().createRemote("order");
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        EXPECT_EQ(service().sendRequest(*second, i, bytesOf("m"), kTimeout, kTimeout, std::nullopt,
                                        nullptr),
                  SendStatus::success);
        EXPECT_EQ(service().sendRequest(*first, i + 1, bytesOf("m"), kTimeout, kTimeout,
                                        std::nullopt, nullptr),
                  SendStatus::success);
        EXPECT_EQ(service().sendRequest(*first, i + 2, bytesOf("m"), kTimeout, kTimeout,
                                        std::nullopt, nullptr),
                  SendStatus::success);
        for (int j = i; j < i + 3; ++j) {
            expected.push_back(std::to_string(j) + ":m");
        }
    }
    const auto arrived = inbox.waitFor(expected.size());
    const auto [here, there] = std::mismatch(arrived.begin(), arrived.end(), expected.begin());
    EXPECT_TRUE(here == arrived.end()) << *here << " arrived in place of " << *there;
}

TEST_P(MessagePortServiceConformance, callbacksRunOnTheQueueOneAtATime) {
    std::atomic<int> running = 0;
    std::atomic<int> calls = 0;
    std::atomic<bool> alone = true;
    std::atomic<bool> onQueue = true;
    DispatchQueue& serial = queue();
    const auto callback = [&](MessagePort&, std::int32_t, std::optional<ByteView>) {
        alone = alone && ++running == 1;
        onQueue = onQueue && serial.isCurrent();
        std::this_thread::yield();
        --running;
        ++calls;
        return std::optional<Bytes>();
    };
    const auto first = service().createLocal("first", callback);
    const auto second = service().createLocal("second", callback);
    service().setDispatchQueue(*first, serial);
    service().setDispatchQueue(*second, serial);
    std::vector<std::thread> senders;
    for (const char* name : {"first", "second", "first", "second"}) {
        senders.emplace_back([this, name] {
            for (int i = 0; i < 50; ++i) {
                std::optional<Bytes> reply;
                EXPECT_EQ(ask(service(), name, i, bytesOf("m"), reply), SendStatus::success);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    EXPECT_EQ(calls, 200);
    EXPECT_TRUE(alone);
    EXPECT_TRUE(onQueue);
    EXPECT_FALSE(serial.isCurrent());
}

TEST_P(MessagePortServiceConformance, invalidationFreesTheNameAtOnce) {
    auto local = service().createLocal("freed", noReply());
    const auto remote = service().createRemote("freed");
    service().setDispatchQueue(*local, queue());
    service().invalidate(*local);
    service().invalidate(*local);
    EXPECT_EQ(service().createRemote("freed"), nullptr);
    EXPECT_EQ(
        service().sendRequest(*remote, 1, bytesOf("x"), kTimeout, kTimeout, std::nullopt, nullptr),
        SendStatus::isInvalid);
    const auto next = service().createLocal("freed", noReply());
    EXPECT_NE(next, nullptr);
    // The old port's end must not take the name from the new one.
    local.reset();
    EXPECT_NE(service().createRemote("freed"), nullptr);
}

TEST_P(MessagePortServiceConformance, droppingALocalPortInvalidatesIt) {
    auto local = service().createLocal("dropped", noReply());
    service().setDispatchQueue(*local, queue());
    local.reset();
    EXPECT_EQ(service().createRemote("dropped"), nullptr);
}

TEST_P(MessagePortServiceConformance, anInvalidatedRemoteSendsNothing) {
    Inbox inbox;
    const auto local = service().createLocal("target", inbox.callback());
    service().setDispatchQueue(*local, queue());
    const auto remote = service().createRemote("target");
    service().invalidate(*remote);
    EXPECT_EQ(
        service().sendRequest(*remote, 1, bytesOf("x"), kTimeout, kTimeout, std::nullopt, nullptr),
        SendStatus::isInvalid);
    EXPECT_EQ(post(service(), "target", 2, bytesOf("y")), SendStatus::success);
    EXPECT_THAT(inbox.waitFor(1), ElementsAre("2:y"));
}

TEST_P(MessagePortServiceConformance, invalidationWaitsForTheCallbackThatRuns) {
    std::promise<void> entered;
    std::promise<void> mayLeave;
    std::atomic<bool> hasLeft = false;
    const auto local =
        service().createLocal("busy", [&](MessagePort&, std::int32_t, std::optional<ByteView>) {
            entered.set_value();
            mayLeave.get_future().wait();
            hasLeft = true;
            return std::optional<Bytes>();
        });
    service().setDispatchQueue(*local, queue());
    EXPECT_EQ(post(service(), "busy", 1, bytesOf("x")), SendStatus::success);
    ASSERT_EQ(entered.get_future().wait_for(kLong), std::future_status::ready);
    auto ended = std::async(std::launch::async, [&] {
        service().invalidate(*local);
        return hasLeft.load();
    });
    EXPECT_NE(ended.wait_for(20ms), std::future_status::ready);
    mayLeave.set_value();
    EXPECT_TRUE(ended.get());
}

TEST_P(MessagePortServiceConformance, invalidationWithinACallbackReturnsAndIsTheLast) {
    std::atomic<int> calls = 0;
    std::promise<void> invalidated;
    const auto local = service().createLocal(
        "self", [&](MessagePort& port, std::int32_t, std::optional<ByteView>) {
            ++calls;
            service().invalidate(port);
            invalidated.set_value();
            return std::optional(bytesOf("last"));
        });
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(post(service(), "self", i, bytesOf("x")), SendStatus::success);
    }
    service().setDispatchQueue(*local, queue());
    ASSERT_EQ(invalidated.get_future().wait_for(kLong), std::future_status::ready);
    // What was on the queue before this has run by now.
    std::promise<void> passed;
    queue().async([&] { passed.set_value(); });
    ASSERT_EQ(passed.get_future().wait_for(kLong), std::future_status::ready);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(service().createRemote("self"), nullptr);
}

TEST_P(MessagePortServiceConformance, aCallbackMaySendToAnotherPort) {
    Inbox inbox;
    const auto other = service().createLocal("other", inbox.callback());
    service().setDispatchQueue(*other, queue("other queue"));
    const auto local = service().createLocal(
        "relay", [&](MessagePort&, std::int32_t messageID, std::optional<ByteView> data) {
            std::optional<Bytes> reply;
            EXPECT_EQ(ask(service(), "other", messageID, *data, reply), SendStatus::success);
            return std::optional(bytesOf("relayed"));
        });
    service().setDispatchQueue(*local, queue());
    std::optional<Bytes> reply;
    EXPECT_EQ(ask(service(), "relay", 9, bytesOf("through"), reply), SendStatus::success);
    EXPECT_EQ(text(*reply), "relayed");
    EXPECT_THAT(inbox.waitFor(1), ElementsAre("9:through"));
}

TEST_P(MessagePortServiceConformance, sixtyFourMebibytesGoBothWaysAndNotOneByteMore) {
    const auto local = service().createLocal(
        "large", [](MessagePort&, std::int32_t, std::optional<ByteView> data) {
            return std::optional(Bytes(data->begin(), data->end()));
        });
    service().setDispatchQueue(*local, queue());
    Bytes data(std::size_t{64} << 20U);
    for (std::size_t i = 0; i < data.size(); i += 4093) {
        data[i] = static_cast<std::uint8_t>(i);
    }
    std::optional<Bytes> reply;
    EXPECT_EQ(ask(service(), "large", 1, data, reply), SendStatus::success);
    ASSERT_TRUE(reply);
    EXPECT_TRUE(*reply == data);
    data.push_back(0);
    reply.reset();
    EXPECT_EQ(ask(service(), "large", 1, data, reply), SendStatus::transportError);
    EXPECT_FALSE(reply);
}

TEST_P(MessagePortServiceConformance, aReplyThatIsTooLargeIsAFailure) {
    const auto local =
        service().createLocal("generous", [](MessagePort&, std::int32_t, std::optional<ByteView>) {
            return std::optional(Bytes((std::size_t{64} << 20U) + 1));
        });
    service().setDispatchQueue(*local, queue());
    std::optional<Bytes> reply;
    EXPECT_EQ(ask(service(), "generous", 1, bytesOf("x"), reply), SendStatus::transportError);
    EXPECT_FALSE(reply);
}

TEST_P(MessagePortServiceConformance, theEndWaitsForTheCallbackThatHasEndedItsOwnPort) {
    std::promise<void> ended;
    std::atomic<bool> isDone = false;
    auto local = service().createLocal(
        "self", [&](MessagePort& self, std::int32_t, std::optional<ByteView>) {
            service().invalidate(self);
            ended.set_value();
            for (int i = 0; i < 10'000; ++i) {
                std::this_thread::yield();
            }
            isDone = true;
            return std::optional<Bytes>();
        });
    service().setDispatchQueue(*local, queue());
    EXPECT_EQ(post(service(), "self", 1, bytesOf("x")), SendStatus::success);
    ended.get_future().wait();
    local.reset();
    EXPECT_TRUE(isDone);
}

TEST_P(MessagePortServiceConformance, aCallbackThatTakesTooLongIsAReceiveTimeout) {
    std::promise<void> mayAnswer;
    const auto local =
        service().createLocal("slow", [&](MessagePort&, std::int32_t, std::optional<ByteView>) {
            mayAnswer.get_future().wait();
            return std::optional(bytesOf("late"));
        });
    service().setDispatchQueue(*local, queue());
    const auto remote = service().createRemote("slow");
    std::optional<Bytes> reply;
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(service().sendRequest(*remote, 1, bytesOf("x"), kTimeout, 100ms, "mode", &reply),
              SendStatus::receiveTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 100ms);
    EXPECT_FALSE(reply);
    mayAnswer.set_value();
}

} // namespace corvid::test
