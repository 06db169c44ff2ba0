#pragma once

#include "App/Logging/CVMALogFileManager.h"
#include "App/Reporting/LumberjackLoggingService.h"
#include "Core/Archive/Menu.h"
#include "Core/Base/URL.h"
#include "Extensions/Finder/CVMABadgeDelegate.h"
#include "Extensions/Finder/CVMABadgeHandler.h"
#include "Platform/Interfaces/FIFinderSync.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace corvid {

/// The controller: stands between a file manager and the host application and decides almost
/// nothing by itself. It asks the host which badge and which menu an item gets, hands clicks back,
/// says which folders are on screen, and takes pushed badges.
///
/// Every callback does its whole exchange with the host on the caller's thread. Badge requests and
/// pushed badges may run at the same time as anything else; they share nothing that changes. All
/// other callbacks, and teardown, belong to one thread at a time.
///
/// What is virtual here may be overridden, and the controller itself always calls it that way.
class CVMAFinderSync : public FIFinderSync,
                       public CVMABadgeDelegate,
                       public std::enable_shared_from_this<CVMAFinderSync> {
protected:
    /// Only create() makes controllers, of this class or of one derived from it.
    class Key {
        friend class CVMAFinderSync;
        Key() = default;
    };

public:
    /// Makes a controller and starts it: registers watched folder and badges with the file
    /// manager, opens the port for pushed badges, registers that port with the host.
    /// `T`, a class derived from this one, takes the key and `arguments`; its overrides hold from
    /// the first step to the last, which is why neither start nor end is left to a constructor.
    ///
    /// When the last reference is dropped, no further push reaches the controller; the one in work
    /// ends first; then the controller is torn down, in the opposite order and likewise in full,
    /// on the thread that dropped the reference and before that returns. So it holds no lock that a
    /// push takes. Dropped from within a push itself, the teardown follows that push on its thread.
    template <class T = CVMAFinderSync, class... Arguments>
    static std::shared_ptr<T> create(Arguments&&... arguments) {
        std::shared_ptr<T> controller(new T(Key(), std::forward<Arguments>(arguments)...), letGo);
        controller->startUp();
        return controller;
    }

    /// What the end of the last reference does, but for freeing the memory, ahead of that: returns
    /// when the controller is torn down, even from within a push, which then must not need it any
    /// more. For an owner whose own end cannot be put off. After it, the reference is dropped and
    /// nothing else is called.
    void end();

    explicit CVMAFinderSync(Key key);
    ~CVMAFinderSync() override;

    // The file manager's callbacks.
    void beginObservingDirectory(const URL& url) override;
    void endObservingDirectory(const URL& url) override;
    void requestBadgeIdentifier(const URL& url) override;
    std::shared_ptr<Menu> menu(FIMenuKind kind) override;
    void performAction(const std::shared_ptr<Object>& sender) override;

    /// Asks the host for the item's badge and sets it; an answered `none` sets nothing.
    virtual void requestAndSetBadgeIdentifier(const URL& url);

    /// Sets a badge that the host pushed; `none` is set like any other.
    void setBadge(CVMABadgeID badgeID, const URL& url) override;

    /// True when "CVD_ENABLE_FINDER_EXT_LOGGING" is "1" in the environment, read at each call.
    virtual bool loggingEnabled() const;

    /// The selectors that menu items came with, by tag. Grows and is never cleared.
    virtual std::unordered_map<std::int64_t, Selector>& actionSelector();

    virtual const std::shared_ptr<CVMABadgeHandler>& badgeHandler() const;
    virtual void setBadgeHandler(std::shared_ptr<CVMABadgeHandler> badgeHandler);

    virtual const std::shared_ptr<CVMALogFileManager>& logFileManager() const;
    virtual void setLogFileManager(std::shared_ptr<CVMALogFileManager> logFileManager);

    const std::shared_ptr<LumberjackLoggingService>& lumberjackService() const;
    /// The name of this instance's server port: the application group, "-", and a new UUID.
    const std::string& portId() const;
    /// Put on every menu item; null when the bundle lacks it.
    const std::shared_ptr<Image>& menuIcon() const;

protected:
    /// What create() runs; a controller that nobody shares yet is fatal.
    void startUp();

private:
    static void letGo(CVMAFinderSync* controller);
    void tearDown();
    bool isMyFolder(const URL& url) const;
    /// Makes a click on `item` come back here, and remembers what it came with.
    void rewire(MenuItem& item);

    const URL myFolderURL_;
    std::unordered_map<std::int64_t, Selector> actionSelector_;
    std::shared_ptr<CVMABadgeHandler> badgeHandler_;
    std::shared_ptr<CVMALogFileManager> logFileManager_;
    const std::shared_ptr<LumberjackLoggingService> lumberjackService_;
    const std::string portId_;
    const std::shared_ptr<Image> menuIcon_;
    bool hasEnded_ = false;
};

} // namespace corvid
