#include "Extensions/Finder/CVMAMessagePort.h"

#include "FinderFixture.h"

namespace corvid {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const Bytes kPayload = {1, 2, 3};

class Transport : public FinderFixture {
protected:
    void send(const std::vector<std::string>& names, CVMAMessageID id, bool reply) {
        CVMAMessagePort::dispatchMessage(names, id, reply, kPayload, slot_);
    }
    std::optional<Bytes> slot_;
};
using TransportDeath = Transport;

TEST_F(Transport, TheQueueIsTheSubsystemsOwnAndAlwaysTheSame) {
    EXPECT_EQ(CVMAMessagePort::messagePortQueue().label(),
              "com.Corvid.desktop.widget.MessagePortQueue");
    EXPECT_EQ(&CVMAMessagePort::messagePortQueue(), &CVMAMessagePort::messagePortQueue());
}

TEST_F(Transport, AMessageWithReplyGoesOutWithBothTimeOutsAndTheReplyMode) {
    setReply(CVMAMessageID::requestBadge, Bytes{9, 9});
    CVMAMessagePort::dispatchMessage(kHostPort, CVMAMessageID::requestBadge, true, kPayload, slot_);
    EXPECT_THAT(
        happened(),
        ElementsAre("createRemote com.corvid.desktop.widget",
                    "sendRequest com.corvid.desktop.widget id=4 bytes=3 send=1000ms receive=1000ms "
                    "replyMode=com.corvid.desktop.widget.replymode",
                    "releaseRemote com.corvid.desktop.widget"));
    EXPECT_EQ(slot_, (Bytes{9, 9}));
}

TEST_F(Transport, AMessageWithoutReplyNeverFillsTheSlot) {
    setReply(CVMAMessageID::updatePathCache, Bytes{9, 9});
    CVMAMessagePort::dispatchMessage(kHostPort, CVMAMessageID::updatePathCache, false, kPayload,
                                     slot_);
    EXPECT_THAT(
        happened(),
        ElementsAre("createRemote com.corvid.desktop.widget",
                    "sendRequest com.corvid.desktop.widget id=6 bytes=3 send=1000ms receive=1000ms "
                    "replyMode=none",
                    "releaseRemote com.corvid.desktop.widget"));
    EXPECT_FALSE(slot_);
}

TEST_F(Transport, AnAbsentPortIsLoggedAndNothingIsSent) {
    removePeer(kHostPort);
    slot_ = Bytes{7};
    CVMAMessagePort::dispatchMessage(kHostPort, CVMAMessageID::requestBadge, true, kPayload, slot_);
    EXPECT_THAT(happened(), ElementsAre("createRemote com.corvid.desktop.widget -> absent",
                                        "log 2 <UI> MessagePort: Unable to open server port"));
    EXPECT_EQ(slot_, Bytes{7});
}

TEST_F(Transport, EveryFailureOfASendIsLoggedByTheMessagesName) {
    for (const SendStatus status :
         {SendStatus::sendTimeout, SendStatus::receiveTimeout, SendStatus::isInvalid,
          SendStatus::transportError, SendStatus::becameInvalid}) {
        setStatus(kHostPort, status);
        slot_ = Bytes{7};
        happened();
        CVMAMessagePort::dispatchMessage(kHostPort, CVMAMessageID::provideBadge, true, kPayload,
                                         slot_);
        EXPECT_EQ(happened().back(),
                  "log 2 <UI> MessagePort: Error sending message with messageID = provideBadge to "
                  "portname = com.corvid.desktop.widget");
        EXPECT_EQ(slot_, Bytes{7});
    }
}

TEST_F(Transport, AnEmptyListSendsAndLogsNothing) {
    send({}, CVMAMessageID::provideBadge, false);
    EXPECT_THAT(happened(), IsEmpty());
}

TEST_F(Transport, AListGoesOnAfterAFailure) {
    addPeer("second");
    send({"first", "second"}, CVMAMessageID::provideBadge, false);
    EXPECT_THAT(happened(),
                ElementsAre("createRemote first -> absent",
                            "log 2 <UI> MessagePort: Unable to open server port",
                            "createRemote second", StartsWith("sendRequest second id=3 "),
                            "releaseRemote second"));
}

TEST_F(Transport, AListSharesOneSlot) {
    addPeer("first");
    addPeer("second");
    setReplyOf("first", Bytes{1});
    setReplyOf("second", Bytes{2});
    send({"first", "second"}, CVMAMessageID::requestBadge, true);
    EXPECT_EQ(slot_, Bytes{2});
    // A later failure leaves the earlier reply in place.
    setStatus("first", SendStatus::receiveTimeout);
    send({"second", "first"}, CVMAMessageID::requestBadge, true);
    EXPECT_EQ(slot_, Bytes{2});
}

TEST_F(TransportDeath, AFailureWithNobodyToReportItToStopsTheProcess) {
    removePeer(kHostPort);
    AppReportingService::setSharedReportingService(nullptr);
    EXPECT_DEATH(CVMAMessagePort::dispatchMessage(kHostPort, CVMAMessageID::requestBadge, true,
                                                  kPayload, slot_),
                 "fatal: .*reporting service");
    AppReportingService::setSharedReportingService(&reporting_);
}

class Requests : public FinderFixture {
protected:
    const std::vector<URL> urls_ = {item("a b.txt"), item("c.txt")};
    const std::string urlsText_ =
        "[file:///Volumes/Corvid/a%20b.txt, file:///Volumes/Corvid/c.txt]";

    std::vector<std::string> keysOf(CVMAMessageID id) {
        std::vector<std::string> keys;
        const Value payload = lastPayload(id);
        const Dictionary* const fields = payload.asDictionary();
        EXPECT_NE(fields, nullptr);
        if (fields != nullptr) {
            for (const auto& [key, value] : fields->entries) {
                EXPECT_NE(key.asString(), nullptr);
                keys.push_back(key.asString() != nullptr ? *key.asString() : "no text");
            }
        }
        return keys;
    }
};
using RequestsDeath = Requests;

TEST_F(Requests, ActionsComeBackInOrderWithTheirTitlesLogged) {
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("Share \"it\"", 1, "share:"), entry("", 2, nullptr)}));
    const auto items = CVMAMessagePort::requestActionsForItems(urls_, true);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0]->title, "Share \"it\"");
    EXPECT_EQ(items[0]->action, Selector{"share:"});
    EXPECT_THAT(happened(),
                ElementsAre("log 5 <UI> MessagePort: Request actions for urls = " + urlsText_,
                            "createRemote com.corvid.desktop.widget",
                            StartsWith("sendRequest com.corvid.desktop.widget id=1 "),
                            "releaseRemote com.corvid.desktop.widget",
                            "log 5 <UI> MessagePort: Request action response = "
                            R"(["Share \"it\"", ""] for urls = )" +
                                urlsText_));
    EXPECT_THAT(keysOf(CVMAMessageID::requestActions), ElementsAre("paths", "operatingOnParent"));
}

TEST_F(Requests, EveryOtherAnswerAboutActionsIsAnEmptyList) {
    const std::string unexpected =
        "log 2 <UI> MessagePort: Unexpected request actions response for urls = " + urlsText_ + "!";
    // A menu in a menu, forty deep, each twice in the one above: small as an archive, without end
    // as a menu. And one entry with a long title many times.
    auto unfolding = entry("innermost", 1, "act:");
    for (int level = 0; level < 40; ++level) {
        auto menu = std::make_shared<Menu>();
        menu->items = {unfolding, unfolding};
        unfolding = entry("above", 1, nullptr);
        unfolding->submenu = menu;
    }
    const Value longTitle = Value::menuItem(entry(std::string(700'000, 't').c_str(), 1, "act:"));
    const Value replies[] = {
        Value(),
        Value::string("synced"),
        Value::array({Value::menuItem(unfolding)}),
        Value::array(std::vector<Value>(100, longTitle)),
        Value::menuItem(entry("alone", 1, "alone:")),
        Value::array({Value::menuItem(entry("one", 1, "one:")), Value::string("two")}),
        Value::array({Value()}),
        Value::dictionary({}),
    };
    for (const Value& reply : replies) {
        hostAnswers(CVMAMessageID::requestActions, reply);
        EXPECT_THAT(CVMAMessagePort::requestActionsForItems(urls_, false), IsEmpty());
        EXPECT_EQ(happened().back(), unexpected);
    }
    setReply(CVMAMessageID::requestActions, Bytes{'n', 'o', 't'});
    EXPECT_THAT(CVMAMessagePort::requestActionsForItems(urls_, false), IsEmpty());
    EXPECT_EQ(happened().back(), unexpected);
    removePeer(kHostPort);
    EXPECT_THAT(CVMAMessagePort::requestActionsForItems(urls_, false), IsEmpty());
    EXPECT_EQ(happened().back(), unexpected);
}

TEST_F(Requests, ABadgeIsAskedForByURLAndReadByItsRawValue) {
    for (const char* rawValue : {"cloud", "inProgress", "checkedOut", "finishedTransfer", "error",
                                 "accessDenied", "synced", "syncedpartial", "none"}) {
        hostAnswers(CVMAMessageID::requestBadge, Value::string(rawValue));
        EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(urls_[0]).rawValue(), rawValue);
        EXPECT_THAT(happened(),
                    ElementsAre("log 5 <UI> MessagePort: Request badge for url = "
                                "file:///Volumes/Corvid/a%20b.txt",
                                "createRemote com.corvid.desktop.widget",
                                StartsWith("sendRequest com.corvid.desktop.widget id=4 "),
                                "releaseRemote com.corvid.desktop.widget",
                                std::string("log 5 <UI> MessagePort: Badge response = ") +
                                    rawValue + " for url = file:///Volumes/Corvid/a%20b.txt"));
    }
    EXPECT_THAT(keysOf(CVMAMessageID::requestBadge), ElementsAre("url"));
    EXPECT_EQ(lastURL(CVMAMessageID::requestBadge, "url"), urls_[0]);
}

TEST_F(Requests, EveryAnswerThatIsNoStringIsTheCloud) {
    const std::string unexpected = "log 2 <UI> MessagePort: Unexpected Badge response for url = "
                                   "file:///Volumes/Corvid/c.txt";
    for (const Value& reply :
         {Value(), Value::integer(7), Value::array({Value::string("synced")})}) {
        hostAnswers(CVMAMessageID::requestBadge, reply);
        EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(urls_[1]), CVMABadgeID::cloud);
        EXPECT_EQ(happened().back(), unexpected);
    }
    setReply(CVMAMessageID::requestBadge, Bytes{});
    EXPECT_EQ(CVMAMessagePort::requestBadgeIDs(urls_[1]), CVMABadgeID::cloud);
    EXPECT_EQ(happened().back(), unexpected);
}

TEST_F(RequestsDeath, AnUnknownBadgeInAnAnswerStopsTheProcess) {
    for (const char* unknown : {"Synced", "", "syncedPartial", "synced "}) {
        hostAnswers(CVMAMessageID::requestBadge, Value::string(unknown));
        EXPECT_DEATH(CVMAMessagePort::requestBadgeIDs(urls_[0]),
                     "fatal: the host application answered a badge request with an unknown badge")
            << unknown;
    }
}

TEST_F(RequestsDeath, AnUnknownBadgeIsLoggedBeforeItStopsTheProcess) {
    printLogLines();
    hostAnswers(CVMAMessageID::requestBadge, Value::string("Synced"));
    EXPECT_DEATH(CVMAMessagePort::requestBadgeIDs(urls_[0]),
                 "<UI> MessagePort: Badge response = Synced for url = "
                 "file:///Volumes/Corvid/a%20b\\.txt\\|\nfatal: ");
}

TEST_F(Requests, PerformSendsTheItemUnderActionAndTheListUnderPath) {
    CVMAMessagePort::perform(entry("Share", 5, "share:"), urls_);
    EXPECT_THAT(
        happened(),
        ElementsAre("log 5 <UI> MessagePort: performing action = Share for paths = " + urlsText_,
                    "createRemote com.corvid.desktop.widget",
                    AllOf(StartsWith("sendRequest com.corvid.desktop.widget id=2 "),
                          HasSubstr("replyMode=none")),
                    "releaseRemote com.corvid.desktop.widget"));
    EXPECT_THAT(keysOf(CVMAMessageID::performAction), ElementsAre("action", "path"));
}

TEST_F(Requests, RegisterSaysWhichWay) {
    CVMAMessagePort::registerPort("PORT", true);
    EXPECT_EQ(happened().at(0), "log 5 <UI> MessagePort: Registering portId = PORT");
    EXPECT_EQ(lastFlag(CVMAMessageID::updatePortIDs, "register"), true);
    CVMAMessagePort::registerPort("PORT", false);
    EXPECT_EQ(happened().at(0), "log 5 <UI> MessagePort: Unregistering portId = PORT");
    EXPECT_EQ(lastFlag(CVMAMessageID::updatePortIDs, "register"), false);
    EXPECT_EQ(lastText(CVMAMessageID::updatePortIDs, "portId"), "PORT");
    EXPECT_THAT(keysOf(CVMAMessageID::updatePortIDs), ElementsAre("portId", "register"));
}

TEST_F(Requests, ThePathCacheLineEndsAlikeBothWays) {
    CVMAMessagePort::updatePathCache(urls_[0], true);
    EXPECT_EQ(happened().at(0), "log 5 <UI> MessagePort: Adding path = "
                                "file:///Volumes/Corvid/a%20b.txt from path cache");
    CVMAMessagePort::updatePathCache(urls_[0], false);
    EXPECT_EQ(happened().at(0), "log 5 <UI> MessagePort: Removing path = "
                                "file:///Volumes/Corvid/a%20b.txt from path cache");
    EXPECT_THAT(keysOf(CVMAMessageID::updatePathCache), ElementsAre("path", "add"));
}

TEST_F(Requests, ProvideSendsToEveryNameInOrder) {
    addPeer("one");
    addPeer("two");
    CVMAMessagePort::provide({"one", "two"}, CVMABadgeID::syncedpartial, urls_[1]);
    EXPECT_THAT(happened(),
                ElementsAre("log 5 <UI> MessagePort: Providing badgeID = syncedpartial to portIds "
                            R"(= ["one", "two"] for path = file:///Volumes/Corvid/c.txt)",
                            "createRemote one", StartsWith("sendRequest one id=3 "),
                            "releaseRemote one", "createRemote two",
                            StartsWith("sendRequest two id=3 "), "releaseRemote two"));
    EXPECT_THAT(keysOf(CVMAMessageID::provideBadge), ElementsAre("badgeID", "path"));
}

TEST_F(Requests, ProvideSendsTheRawValueAndTheURLAndWantsNoReply) {
    addPeer("one");
    setReplyOf("one", Bytes{9});
    CVMAMessagePort::provide({"one"}, CVMABadgeID::inProgress, urls_[0]);
    EXPECT_THAT(happened(),
                Contains(AllOf(StartsWith("sendRequest one id=3 "),
                               HasSubstr(" send=1000ms receive=1000ms replyMode=none"))));
    EXPECT_EQ(lastText(CVMAMessageID::provideBadge, "badgeID"), "inProgress");
    EXPECT_EQ(lastURL(CVMAMessageID::provideBadge, "path"), urls_[0]);
}

TEST_F(Requests, ProvideToNobodyLeavesItsTraceOnly) {
    CVMAMessagePort::provide({}, CVMABadgeID::error, urls_[1]);
    EXPECT_THAT(happened(), ElementsAre("log 5 <UI> MessagePort: Providing badgeID = error to "
                                        "portIds = [] for path = file:///Volumes/Corvid/c.txt"));
}

TEST_F(RequestsDeath, ATraceWithNobodyToReportItToStopsTheProcess) {
    AppReportingService::setSharedReportingService(nullptr);
    EXPECT_DEATH(CVMAMessagePort::updatePathCache(urls_[0], true), "fatal: .*reporting service");
    AppReportingService::setSharedReportingService(&reporting_);
}

} // namespace
} // namespace corvid
