#include "Platform/Fake/FakeBundle.h"

#include <utility>

namespace corvid {

std::optional<std::string> FakeBundle::bundleIdentifier() const {
    const MutexLock lock(mutex_);
    return identifier_;
}

std::shared_ptr<Image> FakeBundle::imageNamed(std::string_view name) const {
    const MutexLock lock(mutex_);
    if (missingImages_.contains(name)) {
        return nullptr;
    }
    auto image = std::make_shared<Image>();
    image->name = name;
    return image;
}

std::string FakeBundle::localizedString(std::string_view key) const {
    const MutexLock lock(mutex_);
    const auto found = texts_.find(key);
    return found != texts_.end() ? found->second : std::string(key);
}

void FakeBundle::setBundleIdentifier(std::optional<std::string> identifier) {
    const MutexLock lock(mutex_);
    identifier_ = std::move(identifier);
}

void FakeBundle::removeImage(std::string_view name) {
    const MutexLock lock(mutex_);
    missingImages_.emplace(name);
}

void FakeBundle::setLocalizedString(std::string_view key, std::string text) {
    const MutexLock lock(mutex_);
    texts_.insert_or_assign(std::string(key), std::move(text));
}

} // namespace corvid
