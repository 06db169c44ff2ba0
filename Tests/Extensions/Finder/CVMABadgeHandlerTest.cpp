#include "Extensions/Finder/CVMABadgeHandler.h"

#include "Extensions/Finder/CVMAMessagePort.h"
#include "FinderFixture.h"

#include <utility>

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RecordingDelegate final : public CVMABadgeDelegate {
public:
    void setBadge(CVMABadgeID badgeID, const URL& url) override {
        taken.emplace_back(badgeID.rawValue(), url.path());
    }
    std::vector<std::pair<std::string, std::string>> taken;
};

class BadgeHandler : public FinderFixture {
protected:
    static Value push(const char* badge, const char* name) {
        return Value::dictionary(
            {{"badgeID", Value::string(badge)}, {"path", Value::url(item(name))}});
    }
    /// Delivers one message to the port on its queue and gives the reply.
    std::optional<Bytes> deliver(const std::string& port, CVMAMessageID id, const Value& root) {
        const Bytes payload = archivedData(root);
        return ports().deliver(port, id.rawValue(), ByteView(payload));
    }

    std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};
using BadgeHandlerDeath = BadgeHandler;

TEST_F(BadgeHandler, OpensItsPortOnTheQueueAndClosesItFirst) {
    auto handler = std::make_unique<CVMABadgeHandler>("PORT", *delegate_);
    EXPECT_THAT(happened(),
                ElementsAre("log 5 <UI> MessagePort: creating server port with identifier = PORT",
                            "createLocal PORT",
                            "serialQueue com.Corvid.desktop.widget.MessagePortQueue",
                            "setDispatchQueue PORT com.Corvid.desktop.widget.MessagePortQueue"));
    handler.reset();
    EXPECT_THAT(happened(),
                ElementsAre("log 5 <UI> MessagePort: invalidating server port", "invalidate PORT",
                            "log 6 <UI> Deinit of CVMABadgeHandler", "releaseLocal PORT"));
    EXPECT_EQ(CVMABadgeHandler::delegate().delegate(), delegate_.get());
}

/// The fake, which also notes whether pushes have somebody to go to when a port is opened.
class AskingPorts final : public MessagePortService {
public:
    explicit AskingPorts(FakeMessagePortService& fake) : fake_(fake) {}

    MessagePortRef createRemote(std::string_view name) override { return fake_.createRemote(name); }
    PortPresence presenceOf(std::string_view name) override { return fake_.presenceOf(name); }
    SendStatus sendRequest(MessagePort& remote, std::int32_t messageID, ByteView data,
                           std::chrono::milliseconds sendTimeout,
                           std::chrono::milliseconds receiveTimeout,
                           std::optional<std::string_view> replyMode,
                           std::optional<Bytes>* reply) override {
        return fake_.sendRequest(remote, messageID, data, sendTimeout, receiveTimeout, replyMode,
                                 reply);
    }
    MessagePortRef createLocal(std::string_view name, MessagePortCallback callback) override {
        delegates.push_back(CVMABadgeHandler::delegate().delegate());
        return fake_.createLocal(name, std::move(callback));
    }
    void setDispatchQueue(MessagePort& local, DispatchQueue& queue) override {
        fake_.setDispatchQueue(local, queue);
    }
    void invalidate(MessagePort& port) override { fake_.invalidate(port); }

    std::vector<CVMABadgeDelegate*> delegates;

private:
    FakeMessagePortService& fake_;
};

TEST_F(BadgeHandler, TheDelegateIsThereBeforeThePort) {
    AskingPorts asking(ports());
    const Platform& fakes = platform();
    const Platform platform{fakes.processInfo, fakes.fileManager, fakes.clock,
                            fakes.mainBundle,  fakes.dispatch,    asking,
                            fakes.systemLog,   fakes.pasteboard};
    const Platform* const before = setPlatform(&platform);
    {
        const CVMABadgeHandler handler("PORT", *delegate_);
        const auto controller = CVMAFinderSync::create();
        EXPECT_THAT(asking.delegates, ElementsAre(delegate_.get(), static_cast<CVMABadgeDelegate*>(
                                                                       controller.get())));
    }
    setPlatform(before);
}

TEST_F(BadgeHandler, APortThatCannotBeHadLeavesItDeaf) {
    ports().failNextCreateLocal();
    auto handler = std::make_unique<CVMABadgeHandler>("PORT", *delegate_);
    EXPECT_EQ(happened().back(), "log 2 <UI> MessagePort: failed to create server port");
    handler.reset();
    EXPECT_THAT(happened(), ElementsAre("log 6 <UI> Deinit of CVMABadgeHandler"));
}

TEST_F(BadgeHandler, HandsAPushToTheDelegateAndAnswersNothing) {
    const CVMABadgeHandler handler("PORT", *delegate_);
    EXPECT_FALSE(deliver("PORT", CVMAMessageID::provideBadge, push("synced", "a b.txt")));
    EXPECT_FALSE(deliver("PORT", CVMAMessageID::provideBadge, push("none", "c.txt")));
    EXPECT_THAT(delegate_->taken, ElementsAre(std::pair("synced", "/Volumes/Corvid/a b.txt"),
                                              std::pair("none", "/Volumes/Corvid/c.txt")));
}

TEST_F(BadgeHandler, IgnoresEveryOtherMessageWithoutALogLine) {
    const CVMABadgeHandler handler("PORT", *delegate_);
    happened();
    for (std::int32_t id = 1; id <= 12; ++id) {
        if (id != CVMAMessageID::provideBadge) {
            EXPECT_FALSE(deliver("PORT", *CVMAMessageID::fromRawValue(id), push("synced", "a")));
        }
    }
    EXPECT_FALSE(ports().deliver("PORT", CVMAMessageID::provideBadge, std::nullopt));
    EXPECT_THAT(delegate_->taken, IsEmpty());
    EXPECT_THAT(happened(), IsEmpty());
}

TEST_F(BadgeHandler, DropsWhatIsNoPushWithoutALogLine) {
    const CVMABadgeHandler handler("PORT", *delegate_);
    reporting_.clear();
    const Value badge = Value::string("synced");
    const Value url = Value::url(item("a"));
    const Value messages[] = {
        Value(),
        Value::string("synced"),
        Value::array({badge, url}),
        Value::dictionary({}),
        Value::dictionary({{"badgeID", badge}}),
        Value::dictionary({{"path", url}}),
        Value::dictionary({{"badgeID", badge}, {"url", url}}),
        Value::dictionary({{"badgeID", Value::integer(3)}, {"path", url}}),
        Value::dictionary({{"badgeID", badge}, {"path", Value::string("/Volumes/Corvid/a")}}),
        Value::dictionary({{"badgeID", Value()}, {"path", url}}),
        // Not a dictionary from strings, though both keys are there.
        Value::of(Dictionary{{{Value::string("badgeID"), badge},
                              {Value::string("path"), url},
                              {Value::integer(1), Value::integer(1)}}}),
    };
    for (const Value& message : messages) {
        EXPECT_FALSE(deliver("PORT", CVMAMessageID::provideBadge, message));
    }
    const Bytes garbage = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 0xFF};
    EXPECT_FALSE(ports().deliver("PORT", CVMAMessageID::provideBadge, ByteView(garbage)));
    EXPECT_FALSE(ports().deliver("PORT", CVMAMessageID::provideBadge, ByteView()));
    EXPECT_THAT(delegate_->taken, IsEmpty());
    EXPECT_THAT(reporting_.lines(), IsEmpty());
}

TEST_F(BadgeHandler, TheLaterHandlersDelegateGetsThePushesOfBothPorts) {
    const auto later = std::make_shared<RecordingDelegate>();
    const CVMABadgeHandler one("ONE", *delegate_);
    const CVMABadgeHandler two("TWO", *later);
    deliver("ONE", CVMAMessageID::provideBadge, push("synced", "a"));
    deliver("TWO", CVMAMessageID::provideBadge, push("error", "b"));
    EXPECT_THAT(delegate_->taken, IsEmpty());
    EXPECT_EQ(later->taken.size(), 2U);
}

TEST_F(BadgeHandler, WithoutADelegateEvenAnUnknownBadgeIsDropped) {
    const CVMABadgeHandler handler("PORT", *delegate_);
    delegate_.reset();
    reporting_.clear();
    EXPECT_EQ(CVMABadgeHandler::delegate().delegate(), nullptr);
    EXPECT_FALSE(deliver("PORT", CVMAMessageID::provideBadge, push("nonsense", "a")));
    EXPECT_THAT(reporting_.lines(), IsEmpty());
}

TEST_F(BadgeHandlerDeath, AnUnknownBadgeStopsTheProcess) {
    const Bytes message = archivedData(push("Synced", "a"));
    CVMABadgeHandler::setDelegate(*delegate_);
    EXPECT_DEATH(CVMABadgeHandler::processProvideBadgeMessage(message),
                 "fatal: the host application pushed an unknown badge");
}

TEST_F(BadgeHandler, APushReachesTheControllerUntilItHasGone) {
    auto controller = CVMAFinderSync::create();
    const std::string port = controller->portId();
    happened();
    deliver(port, CVMAMessageID::provideBadge, push("error", "a.txt"));
    EXPECT_THAT(happened(),
                ElementsAre("log 6 <UI> Set badge with id =error for url =/Volumes/Corvid/a.txt",
                            "setBadgeIdentifier error file:///Volumes/Corvid/a.txt"));
    controller.reset();
    EXPECT_EQ(CVMABadgeHandler::delegate().delegate(), nullptr);
}

} // namespace
} // namespace corvid
