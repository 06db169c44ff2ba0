#include "App/Strings/LocalizedStrings.h"

#include "Platform/Fake/FakePlatform.h"

#include <gmock/gmock.h>
#include <thread>
#include <vector>

namespace corvid {
namespace {

TEST(LocalizedStringsTest, asksTheBundle) {
    FakePlatform platform;
    platform.bundle.setLocalizedString("Global_Favorites", "Favoriten");
    EXPECT_EQ(localized("Global_Favorites"), "Favoriten");
    EXPECT_EQ(localized("no such key"), "no such key");
    EXPECT_EQ(localized(""), "");
}

// One test for all three: they can be seen at their first use once a process only.
TEST(LocalizedStringsTest, constantsAreFrozenAtTheirFirstUse) {
    FakePlatform platform;
    platform.bundle.setLocalizedString("CVMAOnboardingFinderItem_SharedFolders", "Geteilt");
    platform.bundle.setLocalizedString("CVMAOnboardingFinderItem_PersonalFolders", "Eigene");

    std::vector<const std::string*> seen(8);
    std::vector<std::thread> threads;
    for (const std::string*& address : seen) {
        threads.emplace_back([&address] { address = &kSharedPathPrefix(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, testing::Each(&kSharedPathPrefix()));
    EXPECT_EQ(kSharedPathPrefix(), "/Geteilt");
    EXPECT_EQ(kPersonalFolderPathPrefix(), "/Eigene");
    EXPECT_EQ(kFavoritePathPrefix(), "/Global_Favorites");

    platform.bundle.setLocalizedString("CVMAOnboardingFinderItem_SharedFolders", "Shared");
    platform.bundle.setLocalizedString("Global_Favorites", "Favorites");
    EXPECT_EQ(kSharedPathPrefix(), "/Geteilt");
    EXPECT_EQ(kFavoritePathPrefix(), "/Global_Favorites");
}

TEST(LocalizedStringsTest, copiesToThePasteboard) {
    FakePlatform platform;
    copyToClipboard("a text");
    EXPECT_THAT(platform.calls.lines(),
                testing::ElementsAre("declareStringType", "setString a text"));
}

} // namespace
} // namespace corvid
