#include "HostKit/HostService.h"

#include "Core/Archive/KeyedArchive.h"
#include "HostKit/MenuCoding.h"
#include "Platform/Fake/FakeDispatch.h"
#include "Platform/Fake/FakeMessagePortService.h"
#include "Tests/HostKit/RecordingApplication.h"

#include <CorvidHostKit/Error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvid::hostkit {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kHostPort = "com.corvid.desktop.widget";
constexpr std::int32_t kRequestActions = 1;
constexpr std::int32_t kPerformAction = 2;
constexpr std::int32_t kProvideBadge = 3;
constexpr std::int32_t kRequestBadge = 4;
constexpr std::int32_t kUpdatePortIDs = 5;
constexpr std::int32_t kUpdatePathCache = 6;

Value url(const std::string& path) {
    return Value::url(URL::fileURL(path).value());
}

class HostServiceTest : public ::testing::Test {
protected:
    HostServiceTest()
        : queue_(dispatch_.serialQueue("callbacks")),
          service_(VolumeMapping::make("/home/me/Sync").value(), application_, ports_, queue_) {
        EXPECT_TRUE(service_.open());
    }
    ~HostServiceTest() override {
        service_.close();
        dispatch_.drain();
    }

    std::optional<Bytes> send(std::int32_t messageID,
                              std::vector<std::pair<std::string, Value>> payload) {
        const Bytes data = archivedData(Value::dictionary(std::move(payload)));
        return ports_.deliver(kHostPort, messageID, data);
    }

    std::string askBadge(const std::string& path) {
        const auto reply = send(kRequestBadge, {{"url", url(path)}});
        const auto root = reply ? unarchivedObject(*reply) : std::nullopt;
        return root && root->asString() ? *root->asString() : "(no answer)";
    }

    /// Serves `name` as an extension would, and registers it. Returns what it was pushed.
    void openExtension(const std::string& name) {
        ports_.serve(name, [this](std::int32_t id, std::optional<ByteView> data) {
            const auto root = unarchivedObject(data.value());
            const Dictionary& payload = *root->asDictionary();
            const std::lock_guard lock(mutex_);
            pushed_.push_back(std::to_string(id) + " " + *payload.find("badgeID")->asString() +
                              " " + std::string(payload.find("path")->asURL()->absoluteString()));
            return FakeMessagePortService::Answer{};
        });
        send(kUpdatePortIDs, {{"portId", Value::string(name)}, {"register", Value::boolean(true)}});
    }

    std::vector<std::string> pushedTo() {
        EXPECT_TRUE(service_.flush(std::chrono::steady_clock::now() + std::chrono::minutes(1)));
        const std::lock_guard lock(mutex_);
        return std::exchange(pushed_, {});
    }

    CallLog log_;
    FakeMessagePortService ports_{log_};
    FakeDispatch dispatch_{log_};
    RecordingApplication application_;
    std::mutex mutex_;
    std::vector<std::string> pushed_;
    DispatchQueue& queue_;
    HostService service_;
};

TEST_F(HostServiceTest, badgeIsAskedForTheLocalPath) {
    application_.onBadge = [](const std::string& path) {
        return path.ends_with(".txt") ? "checkedOut" : "none";
    };
    EXPECT_EQ(askBadge("/Volumes/Corvid/a b/ü.txt"), "checkedOut");
    EXPECT_EQ(askBadge("/Volumes/Corvid"), "none");
    EXPECT_THAT(application_.calls(),
                ElementsAre("badge /home/me/Sync/a b/ü.txt", "badge /home/me/Sync"));
}

TEST_F(HostServiceTest, unknownBadgeIsNotSent) {
    application_.onBadge = [](const std::string&) { return "Synced"; };
    EXPECT_EQ(askBadge("/Volumes/Corvid/x"), "(no answer)");
    EXPECT_THAT(application_.calls().back(),
                HasSubstr("\"Synced\" for /home/me/Sync/x is no badge; it is one of cloud, "));
}

TEST_F(HostServiceTest, itemOutsideTheVolumeHasNoBadge) {
    EXPECT_EQ(askBadge("/Volumes/Corvid2/x"), "none");
    EXPECT_EQ(askBadge("/Volumes/Corvid/../x"), "none");
    for (const std::string& call : application_.calls()) {
        EXPECT_THAT(call, StartsWith("problem: file:///Volumes/Corvid"));
    }
}

TEST_F(HostServiceTest, itemOfAnotherComputerIsNotTakenForOneOfHere) {
    const auto ask = [this](const char* text) {
        const auto reply = send(kRequestBadge, {{"url", Value::url(URL::fromText(text).value())}});
        return *unarchivedObject(reply.value())->asString();
    };
    EXPECT_EQ(ask("file://other-host/Volumes/Corvid/x"), "none");
    EXPECT_THAT(
        application_.takeCalls(),
        ElementsAre("problem: file://other-host/Volumes/Corvid/x is on another computer and "
                    "is ignored"));
    EXPECT_EQ(ask("file://LocalHost/Volumes/Corvid/x"), "synced");
    EXPECT_EQ(ask("file:///Volumes/Corvid/x"), "synced");
}

TEST_F(HostServiceTest, exceptionLeavesTheQuestionUnanswered) {
    application_.onBadge = [](const std::string&) -> std::string {
        throw std::runtime_error("no such record");
    };
    EXPECT_EQ(askBadge("/Volumes/Corvid/x"), "(no answer)");
    EXPECT_EQ(application_.calls().back(), "problem: badge() failed: no such record");
}

TEST_F(HostServiceTest, menuTravelsInOrder) {
    application_.onMenu = [] {
        MenuItem open;
        open.title = "Open";
        open.action = "open";
        MenuItem more;
        more.title = "More";
        more.submenu = {open};
        return std::vector<MenuItem>{open, MenuItem::separator(), more};
    };
    const auto reply =
        send(kRequestActions,
             {{"paths", Value::array({url("/Volumes/Corvid/b"), url("/Volumes/Corvid/a")})},
              {"operatingOnParent", Value::boolean(true)}});
    const auto root = unarchivedObject(reply.value());
    const Array& items = *root->asArray();
    ASSERT_EQ(items.elements.size(), 3U);
    EXPECT_EQ(items.elements[0].asMenuItem()->tag, actionTag("open"));
    EXPECT_TRUE(items.elements[1].asMenuItem()->isSeparator);
    EXPECT_EQ(items.elements[2].asMenuItem()->submenu->items[0]->action, Selector{"open"});
    EXPECT_THAT(application_.calls(), ElementsAre("menu /home/me/Sync/b /home/me/Sync/a (parent)"));
}

TEST_F(HostServiceTest, menuThatCannotBeShownIsNotSent) {
    application_.onMenu = [] {
        MenuItem inner;
        inner.title = "Inner";
        inner.submenu = {MenuItem::separator()};
        MenuItem outer;
        outer.title = "Outer";
        outer.submenu = {inner};
        return std::vector<MenuItem>{outer};
    };
    EXPECT_EQ(send(kRequestActions,
                   {{"paths", Value::array({})}, {"operatingOnParent", Value::boolean(false)}}),
              std::nullopt);
    EXPECT_THAT(application_.calls().back(), HasSubstr("\"Inner\" is a submenu within a submenu"));
}

TEST_F(HostServiceTest, clickComesWithActionTitleAndPaths) {
    auto item = std::make_shared<corvid::MenuItem>();
    item->title = "Öffnen";
    item->tag = actionTag("open");
    item->action = Selector{"open"};
    send(kPerformAction,
         {{"action", Value::menuItem(item)}, {"path", Value::array({url("/Volumes/Corvid/a")})}});
    item->action.reset();
    send(kPerformAction, {{"action", Value::menuItem(item)}, {"path", Value::array({})}});
    send(kPerformAction, {{"path", Value::array({})}});
    EXPECT_THAT(application_.calls(), ElementsAre("action open \"Öffnen\" /home/me/Sync/a",
                                                  HasSubstr("\"Öffnen\" came without the action"),
                                                  HasSubstr("without its menu entry")));
}

TEST_F(HostServiceTest, pushesReachEveryRegisteredExtension) {
    openExtension("one");
    service_.push("/home/me/Sync/a", "error", PushTo::everyone);
    EXPECT_THAT(pushedTo(), ElementsAre("3 error file:///Volumes/Corvid/a"));
    openExtension("two");
    service_.push("/home/me/Sync/a/", "synced", PushTo::everyone);
    EXPECT_THAT(pushedTo(), ElementsAre("3 synced file:///Volumes/Corvid/a",
                                        "3 synced file:///Volumes/Corvid/a"));
    send(kUpdatePortIDs, {{"portId", Value::string("one")}, {"register", Value::boolean(false)}});
    service_.push("/home/me/Sync/b", "none", PushTo::everyone);
    EXPECT_THAT(pushedTo(), ElementsAre("3 none file:///Volumes/Corvid/b"));
    EXPECT_THAT(application_.calls(), ElementsAre("open one", "open two", "closed one"));
}

TEST_F(HostServiceTest, registeringTwiceIsOnce) {
    openExtension("one");
    openExtension("one");
    service_.push("/home/me/Sync/a", "error", PushTo::everyone);
    EXPECT_EQ(pushedTo().size(), 1U);
    EXPECT_THAT(application_.calls(), ElementsAre("open one"));
}

TEST_F(HostServiceTest, pushIsRefusedForWhatTheExtensionCouldNotTake) {
    try {
        service_.push("/home/me/Sync/a", "Synced", PushTo::everyone);
        FAIL();
    } catch (const Error& error) {
        EXPECT_THAT(error.what(), HasSubstr("\"Synced\""));
    }
    for (const char* path : {"/home/me/Sync2/a", "a", "/home/me/Sync/../a", "/home/me"}) {
        EXPECT_THROW(service_.push(path, "synced", PushTo::everyone), Error) << path;
    }
    EXPECT_NO_THROW(service_.push("/home/me/Sync/\xff", "synced", PushTo::everyone));
}

TEST_F(HostServiceTest, pushesToWhoShowsTheFolder) {
    openExtension("one");
    const auto show = [this](const std::string& path, bool add) {
        send(kUpdatePathCache, {{"path", url(path)}, {"add", Value::boolean(add)}});
    };
    const auto push = [this] {
        service_.push("/home/me/Sync/d/x", "synced", PushTo::whoShowsTheFolder);
        service_.push("/home/me/Sync/d/deep/x", "synced", PushTo::whoShowsTheFolder);
        service_.push("/home/me/Sync/d", "synced", PushTo::whoShowsTheFolder);
    };
    push();
    EXPECT_THAT(pushedTo(), IsEmpty());
    show("/Volumes/Corvid/d", true);
    show("/Volumes/Corvid/d/", true);
    EXPECT_TRUE(service_.isShown("/home/me/Sync/d"));
    push();
    EXPECT_THAT(pushedTo(), ElementsAre("3 synced file:///Volumes/Corvid/d/x"));
    show("/Volumes/Corvid/d", false);
    push();
    EXPECT_EQ(pushedTo().size(), 1U);
    show("/Volumes/Corvid/d", false);
    show("/Volumes/Corvid/d", false);
    push();
    EXPECT_THAT(pushedTo(), IsEmpty());
    show("/Volumes/Corvid", true);
    push();
    EXPECT_THAT(pushedTo(), ElementsAre("3 synced file:///Volumes/Corvid/d"));
    EXPECT_THAT(application_.calls(), ElementsAre("open one", "shown /home/me/Sync/d",
                                                  "hidden /home/me/Sync/d", "shown /home/me/Sync"));
}

TEST_F(HostServiceTest, lastExtensionTakesItsFoldersAlong) {
    openExtension("one");
    openExtension("two");
    send(kUpdatePathCache, {{"path", url("/Volumes/Corvid/d")}, {"add", Value::boolean(true)}});
    ports_.stopServing("one");
    service_.push("/home/me/Sync/x", "synced", PushTo::everyone);
    application_.waitFor("closed one");
    EXPECT_TRUE(service_.isShown("/home/me/Sync/d"));
    send(kUpdatePortIDs, {{"portId", Value::string("two")}, {"register", Value::boolean(false)}});
    EXPECT_FALSE(service_.isShown("/home/me/Sync/d"));
    EXPECT_EQ(application_.calls().back(), "hidden /home/me/Sync/d");
}

TEST_F(HostServiceTest, hungExtensionHoldsUpNobody) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    ports_.serve("hung", [released](std::int32_t, std::optional<ByteView>) {
        released.wait();
        return FakeMessagePortService::Answer{};
    });
    send(kUpdatePortIDs, {{"portId", Value::string("hung")}, {"register", Value::boolean(true)}});
    openExtension("lively");
    service_.push("/home/me/Sync/a", "synced", PushTo::everyone);
    service_.push("/home/me/Sync/b", "synced", PushTo::everyone);
    EXPECT_EQ(askBadge("/Volumes/Corvid/a"), "synced");
    EXPECT_FALSE(service_.flush(std::chrono::steady_clock::now()));
    release.set_value();
    EXPECT_EQ(pushedTo().size(), 2U);
}

TEST_F(HostServiceTest, registrationIsForPortsThatAreServed) {
    const auto registerPort = [this](const std::string& name) {
        send(kUpdatePortIDs, {{"portId", Value::string(name)}, {"register", Value::boolean(true)}});
    };
    registerPort("nobody");
    EXPECT_THAT(application_.takeCalls(), ElementsAre(HasSubstr("registered as nobody, but")));
    registerPort(std::string(256, 'n'));
    EXPECT_THAT(application_.takeCalls(), ElementsAre(HasSubstr("with a name of 256 bytes")));
    for (std::size_t i = 0; i < PushSenders::kMostLanes; ++i) {
        openExtension("ext " + std::to_string(i));
    }
    EXPECT_THAT(application_.takeCalls(), ::testing::SizeIs(PushSenders::kMostLanes));
    openExtension("late");
    EXPECT_THAT(application_.takeCalls(), ElementsAre(HasSubstr("late gets no pushes, since 64")));
    service_.push("/home/me/Sync/a", "error", PushTo::everyone);
    EXPECT_THAT(pushedTo(), ::testing::SizeIs(PushSenders::kMostLanes));
}

TEST_F(HostServiceTest, pushesWaitForAnExtensionThatCannotBeReached) {
    openExtension("one");
    ports_.hideRemotes("too many open files");
    openExtension("two");
    service_.push("/home/me/Sync/a", "error", PushTo::everyone);
    EXPECT_FALSE(service_.flush(std::chrono::steady_clock::now() + PushSenders::kFirstPause));
    ports_.hideRemotes("");
    EXPECT_THAT(pushedTo(), ::testing::SizeIs(2));
    EXPECT_THAT(application_.calls(), ElementsAre("open one", "open two"));
}

TEST_F(HostServiceTest, noExceptionOfTheApplicationEndsTheHost) {
    struct Odd {};
    application_.onBadge = [](const std::string&) -> std::string { throw Odd(); };
    EXPECT_EQ(askBadge("/Volumes/Corvid/x"), "(no answer)");
    EXPECT_EQ(application_.calls().back(),
              "problem: badge() failed: an exception left it that is no std::exception");
    application_.onProblem = [] { throw Odd(); };
    EXPECT_EQ(askBadge("/Volumes/Corvid/x"), "(no answer)");
    EXPECT_EQ(ports_.deliver(kHostPort, kRequestBadge, std::nullopt), std::nullopt);
    application_.onProblem = [] {};
    application_.onMenu = []() -> std::vector<MenuItem> { throw std::bad_alloc(); };
    EXPECT_EQ(send(kRequestActions,
                   {{"paths", Value::array({})}, {"operatingOnParent", Value::boolean(false)}}),
              std::nullopt);
    application_.onExtensionChanged = [] { throw Odd(); };
    openExtension("one");
    application_.onBadge = [](const std::string&) { return "error"; };
    EXPECT_EQ(askBadge("/Volumes/Corvid/x"), "error");
}

TEST_F(HostServiceTest, selectionThatUnfoldsIsIgnored) {
    // A message of a mebibyte that says a gibibyte.
    const Value item = url("/Volumes/Corvid/" + std::string(1'000'000, 'x'));
    const Value paths = Value::array(std::vector<Value>(1'000, item));
    EXPECT_EQ(
        send(kRequestActions, {{"paths", paths}, {"operatingOnParent", Value::boolean(false)}}),
        std::nullopt);
    EXPECT_THAT(application_.takeCalls(),
                ElementsAre(HasSubstr("about 1000 files unfolds into more than 67108864 bytes")));
    // One item may stand there often.
    const Value often = Value::array(std::vector<Value>(1'000, url("/Volumes/Corvid/a")));
    EXPECT_NE(
        send(kRequestActions, {{"paths", often}, {"operatingOnParent", Value::boolean(false)}}),
        std::nullopt);
}

TEST_F(HostServiceTest, messagesThatMakeNoSenseAreReported) {
    EXPECT_EQ(ports_.deliver(kHostPort, kRequestBadge, std::nullopt), std::nullopt);
    const Bytes garbage{1, 2, 3};
    EXPECT_EQ(ports_.deliver(kHostPort, kRequestBadge, garbage), std::nullopt);
    EXPECT_EQ(ports_.deliver(kHostPort, 13, archivedData(Value::dictionary({}))), std::nullopt);
    EXPECT_EQ(send(kUpdatePortIDs, {}), std::nullopt);
    EXPECT_EQ(send(kUpdatePathCache, {}), std::nullopt);
    EXPECT_EQ(application_.calls().size(), 5U);
    EXPECT_THAT(application_.calls(), ::testing::Each(StartsWith("problem: ")));
}

TEST_F(HostServiceTest, messagesForOtherPurposesAreIgnored) {
    for (const std::int32_t id : {kProvideBadge, 7, 12}) {
        EXPECT_EQ(send(id, {}), std::nullopt);
    }
    EXPECT_THAT(application_.calls(), IsEmpty());
}

TEST_F(HostServiceTest, secondHostFindsThePortTaken) {
    HostService second(service_.mapping(), application_, ports_, queue_);
    EXPECT_FALSE(second.open());
    second.close();
}

} // namespace
} // namespace corvid::hostkit
