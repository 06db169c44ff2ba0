#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Fake/CallLog.h"
#include "Platform/Interfaces/FIFinderSyncController.h"

namespace corvid {

/// A file manager that shows nothing and records what it is told, URLs by their absolute text:
///
///     setDirectoryURLs [file:///Volumes/Corvid/]
///     setBadgeImage Cloud_icon_16 label Cloud identifier cloud
///     setBadgeImage Cloud_icon_16 no label identifier cloud
///     setBadgeIdentifier synced file:///Volumes/Corvid/a.txt
///
/// A URL list is separated by ", ". Any thread.
class FakeFinderSyncController final : public FIFinderSyncController {
public:
    /// Records into `calls`, which must outlive it.
    explicit FakeFinderSyncController(CallLog& calls) : calls_(calls) {}

    void setDirectoryURLs(const std::vector<URL>& urls) override;
    void setBadgeImage(std::shared_ptr<Image> image, const std::optional<std::string>& label,
                       std::string_view identifier) override;
    void setBadgeIdentifier(std::string_view identifier, const URL& url) override;
    std::optional<URL> targetedURL() override;
    std::optional<std::vector<URL>> selectedItemURLs() override;

    /// What the file manager answers from now on; nothing at first.
    void setTargetedURL(std::optional<URL> url);
    void setSelectedItemURLs(std::optional<std::vector<URL>> urls);
    /// What setDirectoryURLs() set last.
    std::vector<URL> directoryURLs() const;

private:
    CallLog& calls_;
    mutable Mutex mutex_;
    std::vector<URL> directoryURLs_ CORVID_GUARDED_BY(mutex_);
    std::optional<URL> targetedURL_ CORVID_GUARDED_BY(mutex_);
    std::optional<std::vector<URL>> selectedItemURLs_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
