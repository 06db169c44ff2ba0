#import "Platform/Mac/MacFinderSyncController.h"

#import <FinderSync/FinderSync.h>

#include "Platform/Mac/FoundationValues.h"
#include "Platform/Mac/MacImage.h"

namespace corvid {

namespace {

::FIFinderSyncController* finder() {
    return [::FIFinderSyncController defaultController];
}

} // namespace

void MacFinderSyncController::setDirectoryURLs(const std::vector<URL>& urls) {
    @autoreleasepool {
        NSMutableSet* folders = [NSMutableSet set];
        for (const URL& url : urls) {
            if (NSURL* folder = foundationURL(url)) {
                [folders addObject:folder];
            }
        }
        [finder() setDirectoryURLs:folders];
    }
}

void MacFinderSyncController::setBadgeImage(std::shared_ptr<Image> image,
                                            const std::optional<std::string>& label,
                                            std::string_view identifier) {
    @autoreleasepool {
        [finder() setBadgeImage:appKitImage(image)
                          label:label ? foundationString(*label) : nil
             forBadgeIdentifier:foundationString(identifier)];
    }
}

void MacFinderSyncController::setBadgeIdentifier(std::string_view identifier, const URL& url) {
    @autoreleasepool {
        if (NSURL* item = foundationURL(url)) {
            [finder() setBadgeIdentifier:foundationString(identifier) forURL:item];
        }
    }
}

std::optional<URL> MacFinderSyncController::targetedURL() {
    @autoreleasepool {
        return portableURL([finder() targetedURL]);
    }
}

std::optional<std::vector<URL>> MacFinderSyncController::selectedItemURLs() {
    @autoreleasepool {
        NSArray* selected = [finder() selectedItemURLs];
        if (selected == nil) {
            return std::nullopt;
        }
        std::vector<URL> urls;
        for (NSURL* item in selected) {
            if (const std::optional<URL> url = portableURL(item)) {
                urls.push_back(*url);
            }
        }
        return urls;
    }
}

} // namespace corvid
