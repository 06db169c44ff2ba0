#include "Extensions/Finder/CVMAFinderSync.h"

#include "App/Logging/Logger.h"
#include "App/Reporting/AppReportingService.h"
#include "Core/Base/Fatal.h"
#include "Core/Base/UUID.h"
#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Extensions/Finder/CVMAMessagePort.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Extensions/Finder/LogText.h"
#include "Platform/Interfaces/Platform.h"

#include <optional>
#include <string_view>
#include <vector>

namespace corvid {

namespace {

constexpr std::string_view kMyFolderPath = "/Volumes/Corvid";

std::string makePortId() {
    return std::string(CVMAMessagePortID(CVMAMessagePortID::finderExtension).rawValue()) + "-" +
           uuidString(platform().processInfo.randomBytes());
}

std::string selectionText(const std::optional<std::vector<URL>>& selection) {
    return selection ? logText(*selection) : std::string();
}

} // namespace

CVMAFinderSync::CVMAFinderSync(Key /*key*/)
    : myFolderURL_(*URL::fileURL(kMyFolderPath)),
      lumberjackService_(std::make_shared<LumberjackLoggingService>()), portId_(makePortId()),
      menuIcon_(platform().mainBundle.imageNamed("MorrowFilesAppIcon")) {}

CVMAFinderSync::~CVMAFinderSync() = default;

void CVMAFinderSync::startUp() {
    if (loggingEnabled()) {
        setLogFileManager(CVMALogFileManager::withBaseName(
            "CVMAExt_" + std::to_string(platform().processInfo.processIdentifier())));
        requiredReportingService().addLoggingService(lumberjackService_);
    }
    Logger::log("<UI> Initializing Finder sync extension...");
    FIFinderSyncController::defaultController().setDirectoryURLs({myFolderURL_});

    Logger::log("<UI> Registering badges...");
    for (const CVMABadgeID badge : CVMABadgeID::allValues()) {
        std::shared_ptr<Image> image = badge.image();
        if (image == nullptr) {
            fatal("a badge's image is missing from the bundle");
        }
        std::optional<std::string> label;
        if (badge.label()) {
            label = std::string(*badge.label());
        }
        FIFinderSyncController::defaultController().setBadgeImage(std::move(image), label,
                                                                  badge.rawValue());
    }

    Logger::log("<UI> Registering badge handler with delegate...");
    const std::shared_ptr<CVMAFinderSync> self = weak_from_this().lock();
    if (self == nullptr) {
        fatal("the controller has gone while it starts");
    }
    setBadgeHandler(std::make_shared<CVMABadgeHandler>(portId_, *self));

    // Without the prefix that every other line has.
    Logger::log("Registering " + portId_);
    CVMAMessagePort::registerPort(portId_, true);
}

void CVMAFinderSync::letGo(CVMAFinderSync* controller) {
    // Shared, since it is in use until the controller has gone.
    const std::shared_ptr<DelegateGate> gate = controller->gate();
    gate->close();
    gate->afterVisit([controller] {
        controller->end();
        delete controller;
    });
}

void CVMAFinderSync::end() {
    gate()->close();
    if (!std::exchange(hasEnded_, true)) {
        tearDown();
    }
}

void CVMAFinderSync::tearDown() {
    CVMAMessagePort::registerPort(portId_, false);
    FIFinderSyncController::defaultController().setDirectoryURLs({});
    Logger::log("<UI> Deinit of CVMAFinderSync port id= " + portId_);
    setBadgeHandler(nullptr);
    requiredReportingService().removeLoggingService(lumberjackService_);
    if (logFileManager() != nullptr) {
        logFileManager()->removeLogger();
    }
}

bool CVMAFinderSync::isMyFolder(const URL& url) const {
    return url.path() == myFolderURL_.path();
}

void CVMAFinderSync::requestBadgeIdentifier(const URL& url) {
    if (isMyFolder(url)) {
        return;
    }
    // The temporary-item rules see the URL's text, escapes and all, not the path.
    const std::string_view text = url.absoluteString();
    if (isTemporaryItem(text) || isTemporaryItem(stringByDeletingLastPathComponent(text))) {
        return;
    }
    requestAndSetBadgeIdentifier(url);
}

void CVMAFinderSync::requestAndSetBadgeIdentifier(const URL& url) {
    Logger::log("<UI> Requesting badge for url = " + url.path());
    const CVMABadgeID badge = CVMAMessagePort::requestBadgeIDs(url);
    if (badge == CVMABadgeID::none) {
        Logger::log("<UI> Returning without adding badge for url = " + url.path());
        return;
    }
    Logger::log("<UI> Setting badge with id = " + std::string(badge.rawValue()) +
                " for url = " + url.path());
    FIFinderSyncController::defaultController().setBadgeIdentifier(badge.rawValue(), url);
}

void CVMAFinderSync::setBadge(CVMABadgeID badgeID, const URL& url) {
    // The item alone is tested here, not its parent folder.
    if (isMyFolder(url) || isTemporaryItem(url.absoluteString())) {
        return;
    }
    Logger::log("<UI> Set badge with id =" + std::string(badgeID.rawValue()) +
                " for url =" + url.path());
    FIFinderSyncController::defaultController().setBadgeIdentifier(badgeID.rawValue(), url);
}

std::shared_ptr<Menu> CVMAFinderSync::menu(FIMenuKind /*kind*/) {
    FIFinderSyncController& finder = FIFinderSyncController::defaultController();
    const std::optional<URL> targeted = finder.targetedURL();
    const std::optional<std::vector<URL>> selected = finder.selectedItemURLs();
    const std::optional<URL> first =
        selected && !selected->empty() ? std::optional<URL>(selected->front()) : std::nullopt;
    const bool operatingOnParent = first == targeted;

    auto menu = std::make_shared<Menu>();
    menu->title = "Corvid";
    Logger::log("<UI> Requesting actions for items = " + selectionText(selected) +
                " and is operatingOnParent = " + (operatingOnParent ? "true" : "false"));
    if (!selected) {
        fatal("a menu was asked for without a selection");
    }
    for (const std::shared_ptr<MenuItem>& item :
         CVMAMessagePort::requestActionsForItems(*selected, operatingOnParent)) {
        // One level and no further: what lies deeper stays as the host made it.
        if (item->submenu != nullptr) {
            for (const std::shared_ptr<MenuItem>& subItem : item->submenu->items) {
                rewire(*subItem);
            }
        }
        rewire(*item);
        menu->add(item);
    }
    return menu;
}

void CVMAFinderSync::rewire(MenuItem& item) {
    item.target = weak_from_this();
    item.image = menuIcon_;
    if (item.action) {
        actionSelector()[item.tag] = *item.action;
    }
    item.action = Selector{"performAction:"};
}

void CVMAFinderSync::performAction(const std::shared_ptr<Object>& sender) {
    const auto item = std::dynamic_pointer_cast<MenuItem>(sender);
    if (item == nullptr) {
        return;
    }
    const std::optional<std::vector<URL>> selected =
        FIFinderSyncController::defaultController().selectedItemURLs();

    // The host gets the item with the selector that it came with.
    const auto& selectors = actionSelector();
    const auto remembered = selectors.find(item->tag);
    item->action = remembered != selectors.end() ? std::optional(remembered->second) : std::nullopt;

    Logger::log("<UI> Performing action with tag = " + std::to_string(item->tag) +
                " on items = " + selectionText(selected));
    if (!selected) {
        fatal("an action was performed without a selection");
    }
    CVMAMessagePort::perform(item, *selected);
}

void CVMAFinderSync::beginObservingDirectory(const URL& url) {
    Logger::log("<UI> BeginObservingDirectory at : " + url.path());
    CVMAMessagePort::updatePathCache(url, true);
}

void CVMAFinderSync::endObservingDirectory(const URL& url) {
    Logger::log("<UI> endObservingDirectory at : " + url.path());
    CVMAMessagePort::updatePathCache(url, false);
}

bool CVMAFinderSync::loggingEnabled() const {
    return platform().processInfo.environment("CVD_ENABLE_FINDER_EXT_LOGGING") == "1";
}

std::unordered_map<std::int64_t, Selector>& CVMAFinderSync::actionSelector() {
    return actionSelector_;
}

const std::shared_ptr<CVMABadgeHandler>& CVMAFinderSync::badgeHandler() const {
    return badgeHandler_;
}

void CVMAFinderSync::setBadgeHandler(std::shared_ptr<CVMABadgeHandler> badgeHandler) {
    badgeHandler_ = std::move(badgeHandler);
}

const std::shared_ptr<CVMALogFileManager>& CVMAFinderSync::logFileManager() const {
    return logFileManager_;
}

void CVMAFinderSync::setLogFileManager(std::shared_ptr<CVMALogFileManager> logFileManager) {
    logFileManager_ = std::move(logFileManager);
}

const std::shared_ptr<LumberjackLoggingService>& CVMAFinderSync::lumberjackService() const {
    return lumberjackService_;
}

const std::string& CVMAFinderSync::portId() const {
    return portId_;
}

const std::shared_ptr<Image>& CVMAFinderSync::menuIcon() const {
    return menuIcon_;
}

} // namespace corvid
