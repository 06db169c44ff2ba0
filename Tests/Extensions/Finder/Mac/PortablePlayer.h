#pragma once

#include "Core/Base/Mutex.h"
#include "Extensions/Finder/CVMAFinderSync.h"
#include "Platform/Fake/FakeBundle.h"
#include "Platform/Fake/FakeFinderSyncController.h"
#include "Platform/Interfaces/Platform.h"
#include "Platform/Unix/UnixClock.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixFileManager.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/UnixProcessInfo.h"
#include "Platform/Unix/UnixSystemLog.h"
#include "Tests/Extensions/Finder/Mac/FinderPlayer.h"

#include <condition_variable>

namespace corvid {

/// Plays a file manager that holds the portable controller itself: what the shell is compared
/// with. Real message ports; the platform is installed for the life of the object.
class PortablePlayer final : public FinderPlayer {
public:
    /// Records calls into `calls`, which must outlive it.
    explicit PortablePlayer(CallLog& calls);
    ~PortablePlayer() override;

    void startExtension() override;
    void endExtension() override;
    void beginObserving(const URL& folder) override;
    void endObserving(const URL& folder) override;
    void show(const URL& item) override;
    void select(const std::optional<URL>& targeted,
                const std::optional<std::vector<URL>>& selected) override;
    std::string openMenu(FIMenuKind kind) override;
    void click(const std::vector<std::size_t>& place) override;
    void clickSomethingElse() override;
    void waitForBadges(std::size_t count) override;

private:
    /// The fake, which a test can wait for.
    class Finder final : public FIFinderSyncController {
    public:
        explicit Finder(CallLog& calls) : fake(calls) {}
        void setDirectoryURLs(const std::vector<URL>& urls) override {
            fake.setDirectoryURLs(urls);
        }
        void setBadgeImage(std::shared_ptr<Image> image, const std::optional<std::string>& label,
                           std::string_view identifier) override {
            fake.setBadgeImage(std::move(image), label, identifier);
        }
        void setBadgeIdentifier(std::string_view identifier, const URL& url) override;
        std::optional<URL> targetedURL() override { return fake.targetedURL(); }
        std::optional<std::vector<URL>> selectedItemURLs() override {
            return fake.selectedItemURLs();
        }
        void waitForBadges(std::size_t count);

        FakeFinderSyncController fake;

    private:
        Mutex mutex_;
        std::condition_variable changed_;
        std::size_t badges_ CORVID_GUARDED_BY(mutex_) = 0;
    };

    std::string describe(const Menu& menu) const;

    UnixProcessInfo processInfo_;
    UnixFileManager fileManager_;
    UnixClock clock_;
    FakeBundle bundle_;
    UnixDispatch dispatch_;
    UnixMessagePortService messagePorts_;
    UnixSystemLog systemLog_;
    const Platform platform_{processInfo_, fileManager_,  clock_,     bundle_,
                             dispatch_,    messagePorts_, systemLog_, nullptr};
    Finder finder_;
    const Platform* const previousPlatform_ = setPlatform(&platform_);
    FIFinderSyncController* const previousFinder_ =
        FIFinderSyncController::setDefaultController(&finder_);
    std::shared_ptr<CVMAFinderSync> controller_;
    std::shared_ptr<Menu> menu_;
};

} // namespace corvid
