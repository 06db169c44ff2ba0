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
#include <iostream>
#include <malloc.h>
#include <memory>
#include <new>
#include <sstream>
#include <thread>
#include <vector>

namespace corvid::test {

std::atomic<std::ptrdiff_t> liveBytes = 0; ///< from operator new, below

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

// 1,000 front ends for a minute with CORVID_STRESS=50.
TEST_F(PushStressTest, frontEndsLeaveNothingBehind) {
    constexpr int kProcesses = 4;
    UnixDispatch dispatch;
    UnixMessagePortService service;
    const auto port =
        service.createLocal("host", [](MessagePort&, std::int32_t, std::optional<ByteView> data) {
            return std::optional(Bytes(data->begin(), data->end()));
        });
    ASSERT_NE(port, nullptr);
    service.setDispatchQueue(*port, dispatch.serialQueue("host"));
    struct Left {
        std::size_t descriptors = openDescriptors();
        std::size_t threadCount = threads();
        std::ptrdiff_t bytes = liveBytes;
    };
    int answered = 0;
    const auto leftAfter = [&](int frontEnds, std::chrono::milliseconds time) {
        std::vector<std::unique_ptr<ChildProcess>> processes;
        for (int i = 0; i < kProcesses; ++i) {
            processes.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{
                CORVID_PORT_PEER, "visit", "host", std::to_string(frontEnds / kProcesses),
                std::to_string(time.count()), std::to_string(i * frontEnds)}));
        }
        for (const auto& process : processes) {
            std::istringstream counts(process->readLine().value_or("0 1"));
            int answers = 0;
            int failures = 0;
            counts >> answers >> failures;
            answered += answers;
            EXPECT_EQ(failures, 0);
            EXPECT_EQ(process->wait(), 0) << process->readErrors();
        }
        processes.clear();
        // Answered last; a block of the queue then runs when its connection is closed as well, and
        // counts while nothing else goes on.
        {
            const auto remote = service.createRemote("host");
            std::optional<Bytes> reply;
            EXPECT_EQ(service.sendRequest(*remote, 1, Bytes(1), 60s, 60s, "mode", &reply),
                      SendStatus::success);
        }
        std::promise<Left> left;
        dispatch.serialQueue("host").async([&] { left.set_value(Left()); });
        return left.get_future().get();
    };
    // What is made once is there afterwards, such as what is needed to wait for several.
    {
        const auto silent = service.createRemote("host");
        leftAfter(scaled(20), std::chrono::milliseconds(scaled(100)));
    }
    const Left before = leftAfter(kProcesses, std::chrono::milliseconds(scaled(20)));
    answered = 0;
    const Left after = leftAfter(scaled(20), std::chrono::milliseconds(scaled(1200)));
    EXPECT_GE(answered, scaled(20));
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threadCount, before.threadCount);
    EXPECT_EQ(after.bytes, before.bytes);
    RecordProperty("answered", answered);
    std::cout << answered << " answers, " << after.descriptors << " descriptors, "
              << after.threadCount << " threads, " << after.bytes << " bytes\n";
}

} // namespace corvid::test

// Counts what this program has from the heap. Weak, since a sanitizer has operators of its own:
// then it is that which finds what is left over, and nothing is counted here.
__attribute__((weak)) void* operator new(std::size_t size) {
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    corvid::test::liveBytes += static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
    return memory;
}

__attribute__((weak)) void operator delete(void* memory) noexcept {
    corvid::test::liveBytes -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
    std::free(memory);
}

__attribute__((weak)) void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
