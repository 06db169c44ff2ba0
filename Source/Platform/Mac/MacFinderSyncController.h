#pragma once

#include "Platform/Interfaces/FIFinderSyncController.h"

namespace corvid {

/// Finder: `+[FIFinderSyncController defaultController]`, fetched afresh for every call. An item
/// whose URL Foundation refuses is passed over.
class MacFinderSyncController final : public FIFinderSyncController {
public:
    void setDirectoryURLs(const std::vector<URL>& urls) override;
    void setBadgeImage(std::shared_ptr<Image> image, const std::optional<std::string>& label,
                       std::string_view identifier) override;
    void setBadgeIdentifier(std::string_view identifier, const URL& url) override;
    std::optional<URL> targetedURL() override;
    std::optional<std::vector<URL>> selectedItemURLs() override;
};

} // namespace corvid
