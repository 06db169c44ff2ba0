#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/Bundle.h"

#include <map>
#include <set>

namespace corvid {

/// A bundle that has every picture but those that the test takes away, and the texts that it puts
/// in. Its identifier is the extension's until the test sets another. Any thread.
class FakeBundle final : public Bundle {
public:
    std::optional<std::string> bundleIdentifier() const override;
    std::shared_ptr<Image> imageNamed(std::string_view name) const override;
    std::string localizedString(std::string_view key) const override;

    void setBundleIdentifier(std::optional<std::string> identifier);
    void removeImage(std::string_view name);
    void setLocalizedString(std::string_view key, std::string text);

private:
    mutable Mutex mutex_;
    std::optional<std::string>
        identifier_ CORVID_GUARDED_BY(mutex_) = "com.corvid.desktop.widget.FinderExt";
    std::set<std::string, std::less<>> missingImages_ CORVID_GUARDED_BY(mutex_);
    std::map<std::string, std::string, std::less<>> texts_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
