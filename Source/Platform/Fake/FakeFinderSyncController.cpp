#include "Platform/Fake/FakeFinderSyncController.h"

#include <utility>

namespace corvid {

void FakeFinderSyncController::setDirectoryURLs(const std::vector<URL>& urls) {
    std::string line = "setDirectoryURLs [";
    for (const URL& url : urls) {
        line.append(&url == &urls.front() ? "" : ", ").append(url.absoluteString());
    }
    calls_.add(line + "]");
    const MutexLock lock(mutex_);
    directoryURLs_ = urls;
}

void FakeFinderSyncController::setBadgeImage(std::shared_ptr<Image> image,
                                             const std::optional<std::string>& label,
                                             std::string_view identifier) {
    calls_.add("setBadgeImage " + (image != nullptr ? image->name : "no image") +
               (label.has_value() ? " label " + *label : " no label") + " identifier " +
               std::string(identifier));
}

void FakeFinderSyncController::setBadgeIdentifier(std::string_view identifier, const URL& url) {
    calls_.add("setBadgeIdentifier " + std::string(identifier) + " " +
               std::string(url.absoluteString()));
}

std::optional<URL> FakeFinderSyncController::targetedURL() {
    const MutexLock lock(mutex_);
    return targetedURL_;
}

std::optional<std::vector<URL>> FakeFinderSyncController::selectedItemURLs() {
    const MutexLock lock(mutex_);
    return selectedItemURLs_;
}

void FakeFinderSyncController::setTargetedURL(std::optional<URL> url) {
    const MutexLock lock(mutex_);
    targetedURL_ = std::move(url);
}

void FakeFinderSyncController::setSelectedItemURLs(std::optional<std::vector<URL>> urls) {
    const MutexLock lock(mutex_);
    selectedItemURLs_ = std::move(urls);
}

std::vector<URL> FakeFinderSyncController::directoryURLs() const {
    const MutexLock lock(mutex_);
    return directoryURLs_;
}

} // namespace corvid
