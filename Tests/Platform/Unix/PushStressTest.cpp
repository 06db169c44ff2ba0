// Many senders at once: nothing lost, nothing doubled, each in order; nothing after the end.

#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryFolder.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace corvid::test {

namespace {

using namespace std::chrono_literals;

class PushStressTest : public testing::Test {
protected:
    PushStressTest() { setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1); }
    ~PushStressTest() override { unsetenv("XDG_RUNTIME_DIR"); }

    /// CORVID_STRESS makes the tests as large as that factor says; 1 is for every run.
    static int scaled(int count) {
        const char* factor = std::getenv("CORVID_STRESS");
        return count * (factor != nullptr ? std::max(1, std::atoi(factor)) : 1);
    }
    static std::unique_ptr<ChildProcess> readyPeer(std::vector<std::string> words) {
        words.insert(words.begin(), CORVID_PORT_PEER);
        auto process = std::make_unique<ChildProcess>(std::move(words));
        EXPECT_EQ(process->readLine(), "ready");
        return process;
    }

    TemporaryFolder folder_;
};

std::size_t openDescriptors() {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::size_t threads() {
    const auto entries = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace

// 1,000,000 in all with CORVID_STRESS=50.
TEST_F(PushStressTest, fourProcessesLoseAndDoubleNothingAndKeepTheirOrder) {
    const int each = scaled(5000);
    const auto receiver = readyPeer({"collect", "receiver", std::to_string(4 * each)});
    std::vector<std::unique_ptr<ChildProcess>> senders;
    for (const char* name : {"a", "b", "c", "d"}) {
        senders.push_back(readyPeer({"send", "receiver", std::to_string(each), name}));
    }
    for (const auto& sender : senders) {
        sender->goOn();
    }
    for (const auto& sender : senders) {
        EXPECT_EQ(sender->wait(), 0) << sender->readErrors();
    }
    // "out of order" would come first.
    ASSERT_EQ(receiver->readLine(), "all");
    receiver->goOn();
    EXPECT_EQ(receiver->readLine(), std::to_string(4 * each));
}

TEST_F(PushStressTest, noCallbackAfterTheEndUnderFullLoad) {
    UnixDispatch dispatch;
    UnixMessagePortService service;
    for (int round = 0; round < scaled(10); ++round) {
        SCOPED_TRACE(round);
        // What the callback uses goes right after the port's end: a late callback would touch it.
        auto used = std::make_unique<std::atomic<int>>(0);
        std::atomic<bool> hasEnded = false;
        std::atomic<int> after = 0;
        const bool endsWithin = round % 2 == 1;
        MessagePortRef port;
        port = service.createLocal("loaded",
                                   [&](MessagePort& self, std::int32_t, std::optional<ByteView>) {
                                       if (hasEnded) {
                                           ++after;
                                       } else if (++*used == 100 && endsWithin) {
                                           service.invalidate(self);
                                           hasEnded = true;
                                       }
                                       return std::optional<Bytes>();
                                   });
        ASSERT_NE(port, nullptr);
        service.setDispatchQueue(*port, dispatch.serialQueue("loaded"));
        std::atomic<bool> isOver = false;
        std::vector<std::thread> senders;
        for (int i = 0; i < 4; ++i) {
            senders.emplace_back([&] {
                UnixMessagePortService own;
                while (!isOver) {
                    if (const auto remote = own.createRemote("loaded")) {
                        own.sendRequest(*remote, 1, {}, 1s, 1s, std::nullopt, nullptr);
                    }
                }
            });
        }
        while (*used < 100) {
            std::this_thread::yield();
        }
        if (!endsWithin) {
            service.invalidate(*port);
            hasEnded = true;
        }
        port.reset();
        used.reset();
        isOver = true;
        for (std::thread& sender : senders) {
            sender.join();
        }
        EXPECT_EQ(after, 0);
    }
}

TEST_F(PushStressTest, visitorsLeaveNothingBehind) {
    UnixDispatch dispatch;
    UnixMessagePortService service;
    const auto port =
        service.createLocal("host", [](MessagePort&, std::int32_t, std::optional<ByteView> data) {
            return std::optional(Bytes(data->begin(), data->end()));
        });
    ASSERT_NE(port, nullptr);
    service.setDispatchQueue(*port, dispatch.serialQueue("host"));
    const auto settle = [&] {
        // Answered last; a block of the queue then runs when its connection is closed as well.
        const auto remote = service.createRemote("host");
        std::optional<Bytes> reply;
        EXPECT_EQ(service.sendRequest(*remote, 1, Bytes(1), 30s, 30s, "mode", &reply),
                  SendStatus::success);
        std::promise<void> reached;
        dispatch.serialQueue("host").async([&] { reached.set_value(); });
        reached.get_future().wait();
    };
    settle();
    const std::size_t descriptors = openDescriptors();
    const std::size_t threadsBefore = threads();
    const int visitors = scaled(20);
    for (int i = 0; i < visitors; ++i) {
        std::vector<std::unique_ptr<ChildProcess>> group;
        for (int j = 0; j < 5; ++j) {
            group.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{
                CORVID_PORT_PEER, "visit", "host", "50", std::to_string(i * 5 + j)}));
        }
        for (const auto& visitor : group) {
            EXPECT_EQ(visitor->wait(), 0);
        }
    }
    settle();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(threads(), threadsBefore);
}

} // namespace corvid::test
