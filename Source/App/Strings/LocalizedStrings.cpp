#include "App/Strings/LocalizedStrings.h"

#include "Core/Utility/Extensions/PathStrings.h"
#include "Platform/Interfaces/Platform.h"

namespace corvid {

namespace {

std::string rootFolder(std::string_view key) {
    return std::string(kMFRootPathPrefix) + localized(key);
}

} // namespace

std::string localized(std::string_view key) {
    return platform().mainBundle.localizedString(key);
}

const std::string& kFavoritePathPrefix() {
    static const std::string prefix = rootFolder("Global_Favorites");
    return prefix;
}

const std::string& kSharedPathPrefix() {
    static const std::string prefix = rootFolder("CVMAOnboardingFinderItem_SharedFolders");
    return prefix;
}

const std::string& kPersonalFolderPathPrefix() {
    static const std::string prefix = rootFolder("CVMAOnboardingFinderItem_PersonalFolders");
    return prefix;
}

void copyToClipboard(std::string_view text) {
    if (Pasteboard* pasteboard = platform().pasteboard) {
        pasteboard->declareStringType();
        pasteboard->setString(text);
    }
}

} // namespace corvid
