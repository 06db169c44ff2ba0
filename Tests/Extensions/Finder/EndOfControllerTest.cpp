#include "BadgeSender.h"
#include "Extensions/Finder/CVMAMessagePort.h"
#include "FinderFixture.h"
#include "Platform/Unix/UnixClock.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixFileManager.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/UnixProcessInfo.h"
#include "Platform/Unix/UnixSystemLog.h"
#include "Tests/Support/TemporaryFolder.h"

#include <atomic>
#include <functional>
#include <future>
#include <initializer_list>
#include <thread>
#include <utility>

namespace corvid {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

bool isSlotEmpty() {
    return CVMABadgeHandler::delegate().delegate() == nullptr;
}

/// The fake, which also does what the test wants while it is told of a badge, and notes where it is
/// told that nothing is watched any more.
class CallingFinder final : public FIFinderSyncController {
public:
    explicit CallingFinder(FakeFinderSyncController& fake) : fake_(fake) {}

    void setDirectoryURLs(const std::vector<URL>& urls) override {
        fake_.setDirectoryURLs(urls);
        if (urls.empty()) {
            teardownThread = std::this_thread::get_id();
        }
    }
    void setBadgeImage(std::shared_ptr<Image> image, const std::optional<std::string>& label,
                       std::string_view identifier) override {
        fake_.setBadgeImage(std::move(image), label, identifier);
    }
    void setBadgeIdentifier(std::string_view identifier, const URL& url) override {
        fake_.setBadgeIdentifier(identifier, url);
        pushThread = std::this_thread::get_id();
        if (onBadge) {
            onBadge();
        }
    }
    std::optional<URL> targetedURL() override { return fake_.targetedURL(); }
    std::optional<std::vector<URL>> selectedItemURLs() override { return fake_.selectedItemURLs(); }

    std::function<void()> onBadge;
    std::atomic<std::thread::id> pushThread{};
    std::atomic<std::thread::id> teardownThread{};

private:
    FakeFinderSyncController& fake_;
};

/// Notes when its memory is freed.
class NotingController final : public CVMAFinderSync {
public:
    NotingController(Key key, CallLog& calls) : CVMAFinderSync(key), calls_(calls) {}
    ~NotingController() override { calls_.add("freed"); }

private:
    CallLog& calls_;
};

class EndOfController : public FinderFixture {
protected:
    EndOfController() { FIFinderSyncController::setDefaultController(&calling_); }

    /// Delivers a push to `port` and returns when it has been dealt with.
    void push(const std::string& port, const char* badge = "synced") {
        const Bytes payload = pushOf(badge, "a.txt");
        ports().deliver(port, CVMAMessageID::provideBadge, ByteView(payload));
    }

    static std::vector<std::string> pushLines() {
        return {"log 6 <UI> Set badge with id =synced for url =/Volumes/Corvid/a.txt",
                "setBadgeIdentifier synced file:///Volumes/Corvid/a.txt"};
    }
    static std::vector<std::string> teardownLines(const std::string& port) {
        return {"log 5 <UI> MessagePort: Unregistering portId = " + port,
                "createRemote com.corvid.desktop.widget",
                "sendRequest com.corvid.desktop.widget id=5",
                "releaseRemote com.corvid.desktop.widget",
                "setDirectoryURLs []",
                "log 6 <UI> Deinit of CVMAFinderSync port id= " + port,
                "log 5 <UI> MessagePort: invalidating server port",
                "invalidate " + port,
                "log 6 <UI> Deinit of CVMABadgeHandler",
                "releaseLocal " + port,
                "removeLoggingService"};
    }
    static std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts) {
        std::vector<std::string> all;
        for (const auto& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }
    /// What has happened, without the details of what was sent.
    std::vector<std::string> happenedInShort() {
        std::vector<std::string> lines = happened();
        for (std::string& line : lines) {
            if (line.starts_with("sendRequest")) {
                line.erase(line.find(" bytes="));
            }
        }
        return lines;
    }

    CallingFinder calling_{finder_};
};

TEST_F(EndOfController, ThePushInWorkEndsFirstThenTeardownRunsWhereTheOwnerLetsGo) {
    auto controller = CVMAFinderSync::create<NotingController>(calls());
    const std::string port = controller->portId();
    std::promise<void> inWork;
    std::atomic<bool> isOwnerBack{false};
    bool wasOwnerBack = false;
    calling_.onBadge = [&] {
        inWork.set_value();
        // Empty from the moment that the owner lets go, which is waiting for this push now.
        while (!isSlotEmpty() && !isOwnerBack) {
            std::this_thread::yield();
        }
        // A push that comes now is dropped, and not even its badge is looked at.
        CVMABadgeHandler::processProvideBadgeMessage(pushOf("nonsense", "a.txt"));
        wasOwnerBack = isOwnerBack;
        calls().add("the push goes on");
    };
    happened();
    std::thread pusher([&] { push(port); });
    inWork.get_future().wait();
    controller.reset();
    isOwnerBack = true;
    EXPECT_THAT(happenedInShort(),
                ElementsAreArray(
                    joined({pushLines(), {"the push goes on"}, teardownLines(port), {"freed"}})));
    EXPECT_TRUE(isSlotEmpty());
    EXPECT_EQ(calling_.teardownThread, std::this_thread::get_id());
    pusher.join();
    EXPECT_FALSE(wasOwnerBack);
    EXPECT_THAT(happened(), IsEmpty());
}

TEST_F(EndOfController, DroppedFromWithinAPushTheTeardownFollowsThatPushOnItsThread) {
    auto controller = CVMAFinderSync::create<NotingController>(calls());
    const std::string port = controller->portId();
    bool wasEmpty = false;
    calling_.onBadge = [&] {
        controller.reset();
        wasEmpty = isSlotEmpty();
        calls().add("the push goes on");
    };
    happened();
    push(port);
    EXPECT_THAT(happenedInShort(),
                ElementsAreArray(
                    joined({pushLines(), {"the push goes on"}, teardownLines(port), {"freed"}})));
    EXPECT_TRUE(wasEmpty);
    EXPECT_NE(calling_.teardownThread, std::this_thread::get_id());
    EXPECT_EQ(calling_.teardownThread, calling_.pushThread);
}

TEST_F(EndOfController, DroppedFromWithinAPushWithinAPushItWaitsForTheOuterOne) {
    auto controller = CVMAFinderSync::create<NotingController>(calls());
    const std::string port = controller->portId();
    int depth = 0;
    calling_.onBadge = [&] {
        if (++depth == 1) {
            CVMABadgeHandler::processProvideBadgeMessage(pushOf("synced", "a.txt"));
            calls().add("the outer push goes on");
        } else {
            controller.reset();
        }
    };
    happened();
    push(port);
    EXPECT_THAT(happenedInShort(), ElementsAreArray(joined({pushLines(),
                                                            pushLines(),
                                                            {"the outer push goes on"},
                                                            teardownLines(port),
                                                            {"freed"}})));
}

TEST_F(EndOfController, AnEndThatCannotBePutOffIsDoneWithinThePush) {
    auto controller = CVMAFinderSync::create<NotingController>(calls());
    const std::string port = controller->portId();
    bool wasEmpty = false;
    calling_.onBadge = [&] {
        controller->end();
        wasEmpty = isSlotEmpty();
        controller.reset();
        calls().add("the push goes on");
    };
    happened();
    push(port);
    EXPECT_THAT(happenedInShort(),
                ElementsAreArray(
                    joined({pushLines(), teardownLines(port), {"the push goes on"}, {"freed"}})));
    EXPECT_TRUE(wasEmpty);
}

TEST_F(EndOfController, OutsideAnyPushAnEarlyEndTearsDownOnce) {
    auto controller = CVMAFinderSync::create<NotingController>(calls());
    const std::string port = controller->portId();
    happened();
    controller->end();
    EXPECT_THAT(happenedInShort(), ElementsAreArray(teardownLines(port)));
    controller.reset();
    EXPECT_THAT(happened(), ElementsAreArray({"freed"}));
}

TEST_F(EndOfController, OnTheQueueButInNoPushItWaitsForNobody) {
    auto controller = CVMAFinderSync::create<NotingController>(calls());
    const std::string port = controller->portId();
    happened();
    std::promise<void> done;
    CVMAMessagePort::messagePortQueue().async([&] {
        controller.reset();
        done.set_value();
    });
    done.get_future().wait();
    EXPECT_THAT(happenedInShort(), ElementsAreArray(joined({teardownLines(port), {"freed"}})));
}

TEST_F(EndOfController, OneThatEndsBesideANewerOneLeavesThatThePushes) {
    auto older = CVMAFinderSync::create();
    auto newer = CVMAFinderSync::create();
    const std::string port = newer->portId();
    older.reset();
    EXPECT_FALSE(isSlotEmpty());
    happened();
    push(port);
    EXPECT_EQ(happened(), pushLines());
    newer.reset();
    EXPECT_TRUE(isSlotEmpty());
}

TEST_F(EndOfController, TheNewerOnesEndWaitsForAPushThroughTheOlderOnesPort) {
    auto older = CVMAFinderSync::create();
    auto newer = CVMAFinderSync::create();
    const std::string olderPort = older->portId();
    const std::string port = newer->portId();
    std::promise<void> inWork;
    calling_.onBadge = [&] {
        inWork.set_value();
        while (!isSlotEmpty()) {
            std::this_thread::yield();
        }
        calls().add("the push goes on");
    };
    happened();
    std::thread pusher([&] { push(olderPort); });
    inWork.get_future().wait();
    newer.reset();
    EXPECT_THAT(happenedInShort(),
                ElementsAreArray(joined({pushLines(), {"the push goes on"}, teardownLines(port)})));
    pusher.join();
    // The slot was the newer one's, and is not given back.
    push(olderPort, "nonsense");
    EXPECT_TRUE(isSlotEmpty());
    EXPECT_THAT(happened(), IsEmpty());
}

TEST_F(EndOfController, TheNextOneGetsThePushesAgain) {
    CVMAFinderSync::create().reset();
    EXPECT_TRUE(isSlotEmpty());
    const auto next = CVMAFinderSync::create();
    EXPECT_FALSE(isSlotEmpty());
    happened();
    push(next->portId());
    EXPECT_EQ(happened(), pushLines());
}

constexpr int kLives = 200;

/// Ends controllers while two senders push without a pause. Every second one has a newer one beside
/// it, which ends before it and gets the pushes until then.
void endUnderPushes(MessagePortService& ports, FIFinderSyncController& finder,
                    RecordingReportingService& reporting,
                    std::optional<std::string_view> replyMode) {
    for (int life = 0; life < kLives; ++life) {
        FIFinderSyncController::setDefaultController(&finder);
        auto controller = CVMAFinderSync::create();
        BadgeSender one(ports, controller->portId(), "one.txt", replyMode);
        BadgeSender two(ports, controller->portId(), "two.txt", replyMode);
        one.waitFor(life % 5);
        two.waitFor(life % 3);
        if (life % 2 == 1) {
            CVMAFinderSync::create().reset();
            ASSERT_TRUE(isSlotEmpty());
            ASSERT_EQ(reporting.messages().back(), "<UI> Deinit of CVMABadgeHandler");
        }
        controller.reset();
        // What a push needs goes the moment that the owner is back.
        FIFinderSyncController::setDefaultController(nullptr);
        ASSERT_TRUE(isSlotEmpty());
        ASSERT_EQ(reporting.messages().back(), "<UI> Deinit of CVMABadgeHandler");
        reporting.clear();
    }
}

TEST_F(EndOfController, ManyEndsUnderPushes) {
    endUnderPushes(ports(), finder(), reporting_, "replymode");
}

/// The same on the system's sockets and threads.
class EndOfControllerOnUnix : public testing::Test {
protected:
    EndOfControllerOnUnix() { setPlatform(&platform_); }
    ~EndOfControllerOnUnix() override {
        FIFinderSyncController::setDefaultController(nullptr);
        setPlatform(nullptr);
    }

    TemporaryFolder folder_;
    CallLog calls_;
    FakeBundle bundle_;
    UnixProcessInfo processInfo_;
    UnixFileManager fileManager_;
    UnixClock clock_;
    UnixDispatch dispatch_;
    UnixMessagePortService ports_{RuntimeFolder(folder_ / "corvid")};
    UnixSystemLog systemLog_;
    const Platform platform_{processInfo_, fileManager_, clock_,     bundle_,
                             dispatch_,    ports_,       systemLog_, nullptr};
    FakeFinderSyncController finder_{calls_};
    RecordingReportingService reporting_;
};

TEST_F(EndOfControllerOnUnix, ManyEndsUnderPushes) {
    endUnderPushes(ports_, finder_, reporting_, std::nullopt);
}

} // namespace
} // namespace corvid
