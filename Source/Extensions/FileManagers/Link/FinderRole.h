#pragma once

#include "Core/Base/Mutex.h"
#include "Core/Base/VolumeMapping.h"
#include "Extensions/FileManagers/Link/FinderModel.h"
#include "Extensions/FileManagers/Link/JobQueue.h"
#include "Extensions/FileManagers/Link/LinkMessages.h"
#include "Extensions/FileManagers/Link/ReplyQueue.h"
#include "Extensions/FileManagers/Link/ShownMenus.h"
#include "Platform/Interfaces/FIFinderSync.h"
#include "Platform/Interfaces/FIFinderSyncController.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace corvid::link {

/// What a file manager is to an extension: calls it, on threads of its own, with what the front
/// ends want, and keeps what it says.
///
/// One thread, the extension's own, makes it, calls everything but badge requests, one at a time,
/// menus and clicks before observations, and tears it down. A few more ask for badges, so that a
/// host that is slow with one does not hold up the rest, and never a menu.
///
/// Front ends speak of local paths, the extension of the volume's; the border is here. All members
/// may be called from any thread unless they say otherwise.
class FinderRole : public FIFinderSyncController {
public:
    using Connection = FinderModel::Connection;
    using ExtensionFactory = std::function<std::shared_ptr<FIFinderSync>()>;

    /// `wake` is called, from any thread and with a lock held, when takeMessage() has something
    /// new or isRetrying() changed; it must only note that.
    FinderRole(VolumeMapping volume, std::function<void()> wake);
    ~FinderRole() override;

    // Life.

    /// Makes the extension and begins to call it, with `badgeThreads` threads for badges.
    void start(ExtensionFactory factory, unsigned badgeThreads = kBadgeThreads);
    static constexpr unsigned kBadgeThreads = 4;
    /// Lets calls end that have begun, drops the extension, which tears it down, and returns when
    /// that is done. What front ends still waited for is not answered.
    void stop();

    // Front ends.

    void connect(Connection connection);
    void disconnect(Connection connection);
    /// Takes what a front end says: a begin, end, ask, menu request or click. False when it is none
    /// of these or exceeds what one front end may want at a time; then it should be hung up on.
    bool handle(Connection connection, Message message);
    /// The next thing to tell the front end; nothing when there is none at the moment. While it is
    /// not taken, no more than ReplyQueue's bound is made for that front end.
    std::optional<Message> takeMessage(Connection connection);

    // The host and its folder.

    /// The host's port came, and went. At the start there is no host.
    void hostAppeared();
    void hostVanished();
    /// As FinderModel has them: retry() once a second while isRetrying().
    bool isRetrying() const;
    void retry();
    /// The volume is another folder from now on: whatever was shown is no longer.
    void setVolume(const VolumeMapping& volume);
    VolumeMapping volume() const;
    /// Fills in what this knows: host state, folders and questions.
    void addStatus(StatusReply& status) const;

    // The extension.

    void setDirectoryURLs(const std::vector<URL>& urls) override;
    void setBadgeImage(std::shared_ptr<Image> image, const std::optional<std::string>& label,
                       std::string_view identifier) override;
    void setBadgeIdentifier(std::string_view identifier, const URL& url) override;
    /// Of the menu or click that the extension is being called for; on its own thread only.
    std::optional<URL> targetedURL() override;
    std::optional<std::vector<URL>> selectedItemURLs() override;

private:
    enum class Phase : std::uint8_t { running, endingBadges, ending };

    void runExtension(const ExtensionFactory& factory);
    void runBadges();
    void perform(FIFinderSync& extension, const JobQueue::Job& job, const MenuRequest& request);
    void perform(FIFinderSync& extension, const JobQueue::Job& job, const Click& click);
    void perform(FIFinderSync& extension, const FinderModel::Observation& observation);
    std::shared_ptr<const Selection> selectionOf(const MenuRequest& request,
                                                 const VolumeMapping& volume) const;

    void tell(Connection connection, Message message) CORVID_REQUIRES(mutex_);
    void tellAll(const Message& message) CORVID_REQUIRES(mutex_);
    void noteOutcome(SendOutcome outcome) CORVID_REQUIRES(mutex_);
    void tellHostState(HostState before) CORVID_REQUIRES(mutex_);
    HostState hostState() const CORVID_REQUIRES(mutex_);
    bool enqueue(Connection connection, MenuRequest request) CORVID_REQUIRES(mutex_);
    void finish(const JobQueue::Job& job, Message reply) CORVID_REQUIRES(mutex_);
    void ask(Connection connection, Ask ask) CORVID_REQUIRES(mutex_);
    std::optional<std::string> watchedPath(std::string_view localPath) const
        CORVID_REQUIRES(mutex_);
    void workChanged() CORVID_REQUIRES(mutex_);

    const std::function<void()> wake_;
    mutable Mutex mutex_;
    std::condition_variable jobsChanged_;
    std::condition_variable questionsChanged_;
    VolumeMapping volume_ CORVID_GUARDED_BY(mutex_);
    FinderModel model_ CORVID_GUARDED_BY(mutex_);
    std::map<Connection, ReplyQueue> replies_ CORVID_GUARDED_BY(mutex_);
    JobQueue jobs_ CORVID_GUARDED_BY(mutex_);
    ShownMenus menus_ CORVID_GUARDED_BY(mutex_);
    std::vector<std::string> watched_ CORVID_GUARDED_BY(mutex_);
    std::vector<BadgeKind> badgeKinds_ CORVID_GUARDED_BY(mutex_);
    std::shared_ptr<FIFinderSync> extension_ CORVID_GUARDED_BY(mutex_);
    Phase phase_ CORVID_GUARDED_BY(mutex_) = Phase::running;
    bool isHostThere_ CORVID_GUARDED_BY(mutex_) = false;
    bool hasFailed_ CORVID_GUARDED_BY(mutex_) = false;

    /// Of the callback in work; the extension's own thread only.
    std::shared_ptr<const Selection> selection_;

    std::thread extensionThread_;
    std::vector<std::thread> badgeThreads_;
};

} // namespace corvid::link
