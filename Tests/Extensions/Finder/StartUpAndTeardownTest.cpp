#include "App/Reporting/CVDDLog.h"
#include "FinderFixture.h"

#include <algorithm>

namespace corvid {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

using StartUpAndTeardown = FinderFixture;
using StartUpAndTeardownDeath = FinderFixture;

TEST_F(StartUpAndTeardown, PortIdIsTheGroupAndAUUIDOfItsOwn) {
    const auto first = CVMAFinderSync::create();
    const auto second = CVMAFinderSync::create();
    for (const auto& controller : {first, second}) {
        EXPECT_THAT(controller->portId(),
                    MatchesRegex("ZQ7X2KD4W9\\.group\\.corvid\\.desktop\\.widget\\.findesync-"
                                 "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
                                 "[0-9A-F]{12}"));
    }
    EXPECT_NE(first->portId(), second->portId());
}

TEST_F(StartUpAndTeardown, OnlyTheTextOneSwitchesLoggingOn) {
    for (const char* value : {"", "0", "true", "01", " 1", "1 ", "11", "yes"}) {
        platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", value);
        const auto controller = CVMAFinderSync::create();
        EXPECT_FALSE(controller->loggingEnabled()) << "'" << value << "'";
        EXPECT_EQ(controller->logFileManager(), nullptr) << "'" << value << "'";
        EXPECT_THAT(reporting_.attached(), IsEmpty());
    }
    platform_.processInfo.unsetEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING");
    EXPECT_FALSE(CVMAFinderSync::create()->loggingEnabled());
    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");
    EXPECT_TRUE(CVMAFinderSync::create()->loggingEnabled());
}

TEST_F(StartUpAndTeardown, TheSwitchIsReadAfreshAtEachCall) {
    const auto controller = CVMAFinderSync::create();
    EXPECT_FALSE(controller->loggingEnabled());
    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");
    EXPECT_TRUE(controller->loggingEnabled());
    EXPECT_EQ(controller->logFileManager(), nullptr);
}

TEST_F(StartUpAndTeardown, LoggingMakesAManagerNamedAfterTheProcessAndAttachesTheService) {
    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");
    platform_.processInfo.setProcessIdentifier(707);
    auto controller = CVMAFinderSync::create();
    ASSERT_NE(controller->logFileManager(), nullptr);
    EXPECT_TRUE(controller->logFileManager()->isLogFile("CVMAExt_707_x.log"));
    EXPECT_FALSE(controller->logFileManager()->isLogFile("CVMAExt_0707_x.log"));
    EXPECT_THAT(reporting_.attached(), ElementsAre(controller->lumberjackService()));
    controller.reset();
    EXPECT_THAT(reporting_.attached(), IsEmpty());
}

TEST_F(StartUpAndTeardown, WithoutLoggingTheServiceIsDetachedAllTheSame) {
    auto controller = CVMAFinderSync::create();
    EXPECT_THAT(happened(), Not(Contains("addLoggingService")));
    controller.reset();
    EXPECT_THAT(happened(), Contains("removeLoggingService"));
}

TEST_F(StartUpAndTeardown, WatchesTheVolumeAndLeavesNothingWatched) {
    auto controller = CVMAFinderSync::create();
    EXPECT_THAT(finder().directoryURLs(), ElementsAre(*URL::fileURL("/Volumes/Corvid")));
    controller.reset();
    EXPECT_THAT(finder().directoryURLs(), IsEmpty());
}

TEST_F(StartUpAndTeardown, RegistersEveryBadgeInOrder) {
    const auto controller = CVMAFinderSync::create();
    auto lines = happened();
    lines.erase(
        std::remove_if(lines.begin(), lines.end(),
                       [](const std::string& line) { return line.rfind("setBadgeImage", 0) != 0; }),
        lines.end());
    EXPECT_THAT(
        lines,
        ElementsAre("setBadgeImage Cloud_icon_16 label Cloud identifier cloud",
                    "setBadgeImage FinderSyncExtensionIcons_syncing.icns label In Progress "
                    "identifier inProgress",
                    "setBadgeImage FinderSyncExtensionIcons_checkout.icns label Checked Out "
                    "identifier checkedOut",
                    "setBadgeImage FinderSyncExtensionIcons_synced.icns label Finished Transfer "
                    "identifier finishedTransfer",
                    "setBadgeImage FinderSyncExtensionIcons_error.icns label Error "
                    "identifier error",
                    "setBadgeImage FinderSyncExtensionIcons_accessdenied.icns label Access Denied "
                    "identifier accessDenied",
                    "setBadgeImage FinderSyncExtensionIcons_synced.icns label Synced "
                    "identifier synced",
                    "setBadgeImage FinderSyncExtensionIcons_syncedpartial.icns label Synced "
                    "Partial identifier syncedpartial"));
}

TEST_F(StartUpAndTeardown, TheDefaultControllerIsFetchedAfreshForEveryBadge) {
    /// Gives way to another after each badge.
    class GivingWay final : public FIFinderSyncController {
    public:
        void setDirectoryURLs(const std::vector<URL>&) override {}
        void setBadgeImage(std::shared_ptr<Image>, const std::optional<std::string>&,
                           std::string_view identifier) override {
            badges.emplace_back(identifier);
            setDefaultController(other);
        }
        void setBadgeIdentifier(std::string_view, const URL&) override {}
        std::optional<URL> targetedURL() override { return std::nullopt; }
        std::optional<std::vector<URL>> selectedItemURLs() override { return std::nullopt; }

        FIFinderSyncController* other = nullptr;
        std::vector<std::string> badges;
    };
    GivingWay first;
    GivingWay second;
    first.other = &second;
    second.other = &first;
    FIFinderSyncController::setDefaultController(&first);
    CVMAFinderSync::create().reset();
    EXPECT_THAT(first.badges, ElementsAre("cloud", "checkedOut", "error", "synced"));
    EXPECT_THAT(second.badges,
                ElementsAre("inProgress", "finishedTransfer", "accessDenied", "syncedpartial"));
    FIFinderSyncController::setDefaultController(&finder());
}

TEST_F(StartUpAndTeardown, LoggersGoAfterTheServiceAndOnlyWithAManager) {
    /// Loggers are flushed when they are removed.
    class NotingLogger final : public CVDDLogger {
    public:
        explicit NotingLogger(CallLog& log) : log_(log) {}
        void logMessage(std::string_view, std::int32_t) override {}
        void flush() override { log_.add("loggers are removed"); }
        std::string problem() const override { return {}; }
        void writeQueuedInSignalHandler() noexcept override {}

    private:
        CallLog& log_;
    };
    CVDDLog::addLogger(std::make_shared<NotingLogger>(calls()), 31);
    CVMAFinderSync::create().reset();
    EXPECT_EQ(happened().back(), "removeLoggingService");

    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");
    CVMAFinderSync::create().reset();
    const auto lines = happened();
    const auto detached = std::find(lines.begin(), lines.end(), "removeLoggingService");
    EXPECT_THAT(std::vector<std::string>(detached, lines.end()),
                ElementsAre("removeLoggingService", "loggers are removed"));
}

TEST_F(StartUpAndTeardown, AMissingMenuIconIsNoError) {
    platform_.bundle.removeImage("MorrowFilesAppIcon");
    EXPECT_EQ(CVMAFinderSync::create()->menuIcon(), nullptr);
}

TEST_F(StartUpAndTeardown, AHandlerWhosePortIsTakenLeavesTheControllerRunning) {
    ports().failNextCreateLocal();
    const auto controller = CVMAFinderSync::create();
    EXPECT_NE(controller->badgeHandler(), nullptr);
    const auto lines = happened();
    EXPECT_THAT(lines, Contains("log 2 <UI> MessagePort: failed to create server port"));
    EXPECT_THAT(lines,
                Contains("log 5 <UI> MessagePort: Registering portId = " + controller->portId()));
}

/// Overrides whatever can be overridden and notes who was called.
class Overriding final : public CVMAFinderSync {
public:
    Overriding(Key key, CallLog& calls) : CVMAFinderSync(key), calls_(calls) {}

    void requestAndSetBadgeIdentifier(const URL& url) override {
        calls_.add("override requestAndSetBadgeIdentifier");
        CVMAFinderSync::requestAndSetBadgeIdentifier(url);
    }
    void setBadge(CVMABadgeID badgeID, const URL& url) override {
        calls_.add("override setBadge");
        CVMAFinderSync::setBadge(badgeID, url);
    }
    bool loggingEnabled() const override {
        calls_.add("override loggingEnabled");
        return true;
    }
    std::unordered_map<std::int64_t, Selector>& actionSelector() override {
        calls_.add("override actionSelector");
        return CVMAFinderSync::actionSelector();
    }
    const std::shared_ptr<CVMALogFileManager>& logFileManager() const override {
        calls_.add("override logFileManager");
        return CVMAFinderSync::logFileManager();
    }
    void setLogFileManager(std::shared_ptr<CVMALogFileManager> manager) override {
        calls_.add("override setLogFileManager");
        CVMAFinderSync::setLogFileManager(std::move(manager));
    }
    void setBadgeHandler(std::shared_ptr<CVMABadgeHandler> handler) override {
        calls_.add(handler != nullptr ? "override setBadgeHandler"
                                      : "override setBadgeHandler none");
        CVMAFinderSync::setBadgeHandler(std::move(handler));
    }

private:
    CallLog& calls_;
};

TEST_F(StartUpAndTeardown, OverridesHoldFromTheFirstStepToTheLast) {
    auto controller = CVMAFinderSync::create<Overriding>(calls());
    auto lines = happened();
    EXPECT_THAT(lines, Contains("override loggingEnabled").Times(1));
    EXPECT_THAT(lines, Contains("override setLogFileManager"));
    EXPECT_THAT(lines, Contains("override setBadgeHandler"));

    hostAnswers(CVMAMessageID::requestBadge, Value::string("synced"));
    controller->requestBadgeIdentifier(item("a.txt"));
    EXPECT_THAT(happened(), Contains("override requestAndSetBadgeIdentifier"));

    CVMABadgeHandler::processProvideBadgeMessage(archivedData(Value::dictionary(
        {{"badgeID", Value::string("error")}, {"path", Value::url(item("a.txt"))}})));
    EXPECT_THAT(happened(), Contains("override setBadge"));

    finder().setSelectedItemURLs(std::vector<URL>{});
    hostAnswers(CVMAMessageID::requestActions, menuReply({entry("Share", 1, "share:")}));
    controller->menu(FIMenuKind::contextualMenuForItems);
    EXPECT_THAT(happened(), Contains("override actionSelector"));

    controller.reset();
    lines = happened();
    EXPECT_THAT(lines, Contains("override setBadgeHandler none"));
    EXPECT_THAT(lines, Contains("override logFileManager"));
}

TEST_F(StartUpAndTeardownDeath, AMissingBadgeImageStopsTheProcess) {
    platform_.bundle.removeImage("FinderSyncExtensionIcons_error.icns");
    EXPECT_DEATH(CVMAFinderSync::create(), "fatal: a badge's image is missing");
}

TEST_F(StartUpAndTeardownDeath, AMissingReportingServiceStopsTheProcess) {
    auto controller = CVMAFinderSync::create();
    AppReportingService::setSharedReportingService(nullptr);
    EXPECT_DEATH(CVMAFinderSync::create(), "fatal: .*reporting service");
    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");
    EXPECT_DEATH(CVMAFinderSync::create(), "fatal: .*reporting service");
    EXPECT_DEATH(controller.reset(), "fatal: .*reporting service");
    AppReportingService::setSharedReportingService(&reporting_);
}

TEST_F(StartUpAndTeardownDeath, AControllerThatNobodyHoldsStopsTheProcess) {
    class Unshared final : public CVMAFinderSync {
    public:
        explicit Unshared(Key key) : CVMAFinderSync(key) { startUp(); }
    };
    EXPECT_DEATH(CVMAFinderSync::create<Unshared>(), "fatal: the controller has gone");
}

TEST_F(StartUpAndTeardownDeath, WithoutAFileManagerThereIsNothingToServe) {
    FIFinderSyncController::setDefaultController(nullptr);
    EXPECT_DEATH(CVMAFinderSync::create(), "fatal: no Finder Sync controller");
}

} // namespace
} // namespace corvid
