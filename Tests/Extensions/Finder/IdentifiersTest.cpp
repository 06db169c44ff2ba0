#include "Extensions/Finder/CVMABadgeID.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Platform/Fake/FakePlatform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_set>

namespace corvid {
namespace {

TEST(CVMAMessageID, NumbersAndNamesAreTheContract) {
    struct Row {
        std::int32_t rawValue;
        CVMAMessageID id;
        std::string_view name;
    };
    constexpr Row kRows[] = {
        {1, CVMAMessageID::requestActions, "requestActions"},
        {2, CVMAMessageID::performAction, "performAction"},
        {3, CVMAMessageID::provideBadge, "provideBadge"},
        {4, CVMAMessageID::requestBadge, "requestBadge"},
        {5, CVMAMessageID::updatePortIDs, "updatePortIDs"},
        {6, CVMAMessageID::updatePathCache, "updatePathCache"},
        {7, CVMAMessageID::openPreferences, "openPreferences"},
        {8, CVMAMessageID::logout, "logout"},
        {9, CVMAMessageID::quit, "quit"},
        {10, CVMAMessageID::openFeedback, "openFeedback"},
        {11, CVMAMessageID::openWorkflows, "openWorkflows"},
        {12, CVMAMessageID::openHelp, "openHelp"},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(CVMAMessageID::fromRawValue(row.rawValue), row.id) << row.name;
        EXPECT_EQ(row.id.rawValue(), row.rawValue) << row.name;
        EXPECT_EQ(row.id.caseName(), row.name);
    }
}

TEST(CVMAMessageID, RefusesEveryOtherNumber) {
    for (const std::int32_t rawValue : {0, 13, -1, 100, std::numeric_limits<std::int32_t>::min(),
                                        std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_FALSE(CVMAMessageID::fromRawValue(rawValue)) << rawValue;
    }
}

TEST(CVMAMessagePortID, KnowsTwoNamesToTheLetter) {
    const CVMAMessagePortID host = CVMAMessagePortID::volumekeeper;
    const CVMAMessagePortID extension = CVMAMessagePortID::finderExtension;
    EXPECT_EQ(host.rawValue(), "com.corvid.desktop.widget");
    EXPECT_EQ(extension.rawValue(), "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync");
    EXPECT_EQ(CVMAMessagePortID::fromRawValue("com.corvid.desktop.widget"), host);
    EXPECT_EQ(CVMAMessagePortID::fromRawValue("ZQ7X2KD4W9.group.corvid.desktop.widget.findesync"),
              extension);
    for (const char* other :
         {"", "com.corvid.desktop.Widget", "com.corvid.desktop.widget ", "com.corvid.desktop",
          "ZQ7X2KD4W9.group.corvid.desktop.widget.findersync",
          "zq7x2kd4w9.group.corvid.desktop.widget.findesync"}) {
        EXPECT_FALSE(CVMAMessagePortID::fromRawValue(other)) << other;
    }
}

struct BadgeRow {
    CVMABadgeID badge;
    std::string_view rawValue;
    std::string_view label;
    std::string_view image;
};
constexpr BadgeRow kBadges[] = {
    {CVMABadgeID::cloud, "cloud", "Cloud", "Cloud_icon_16"},
    {CVMABadgeID::inProgress, "inProgress", "In Progress", "FinderSyncExtensionIcons_syncing.icns"},
    {CVMABadgeID::checkedOut, "checkedOut", "Checked Out",
     "FinderSyncExtensionIcons_checkout.icns"},
    {CVMABadgeID::finishedTransfer, "finishedTransfer", "Finished Transfer",
     "FinderSyncExtensionIcons_synced.icns"},
    {CVMABadgeID::error, "error", "Error", "FinderSyncExtensionIcons_error.icns"},
    {CVMABadgeID::accessDenied, "accessDenied", "Access Denied",
     "FinderSyncExtensionIcons_accessdenied.icns"},
    {CVMABadgeID::synced, "synced", "Synced", "FinderSyncExtensionIcons_synced.icns"},
    {CVMABadgeID::syncedpartial, "syncedpartial", "Synced Partial",
     "FinderSyncExtensionIcons_syncedpartial.icns"},
};

TEST(CVMABadgeID, EachBadgeHasItsRawValueLabelAndPicture) {
    FakePlatform fake;
    for (const BadgeRow& row : kBadges) {
        EXPECT_EQ(row.badge.rawValue(), row.rawValue);
        EXPECT_EQ(CVMABadgeID::fromRawValue(row.rawValue), row.badge) << row.rawValue;
        EXPECT_EQ(row.badge.label(), row.label);
        ASSERT_NE(row.badge.image(), nullptr) << row.rawValue;
        EXPECT_EQ(row.badge.image()->name, row.image);
    }
}

TEST(CVMABadgeID, NoneHasNeitherLabelNorPicture) {
    FakePlatform fake;
    const CVMABadgeID none = CVMABadgeID::none;
    EXPECT_EQ(none.rawValue(), "none");
    EXPECT_EQ(CVMABadgeID::fromRawValue("none"), none);
    EXPECT_FALSE(none.label());
    EXPECT_EQ(none.image(), nullptr);
}

TEST(CVMABadgeID, MatchesRawValuesToTheLetter) {
    for (const char* other : {"", "Finished Transfer", "Synced", "syncedPartial", "Cloud", "None",
                              "synced ", "sync", "inprogress", "syncedpartial2"}) {
        EXPECT_FALSE(CVMABadgeID::fromRawValue(other)) << other;
    }
}

TEST(CVMABadgeID, AllValuesAreTheEightThatAreRegistered) {
    std::vector<CVMABadgeID> expected;
    for (const BadgeRow& row : kBadges) {
        expected.push_back(row.badge);
    }
    const auto& all = CVMABadgeID::allValues();
    EXPECT_EQ(std::vector<CVMABadgeID>(all.begin(), all.end()), expected);
    EXPECT_EQ(all.back(), CVMABadgeID::syncedpartial);
}

TEST(CVMABadgeID, EachLookUpOfAPictureMakesANewObject) {
    FakePlatform fake;
    const CVMABadgeID badge = CVMABadgeID::synced;
    EXPECT_NE(badge.image(), badge.image());
    EXPECT_EQ(CVMABadgeID(CVMABadgeID::finishedTransfer).image()->name, badge.image()->name);
}

TEST(Identifiers, HashByRawValue) {
    for (const BadgeRow& row : kBadges) {
        EXPECT_EQ(std::hash<CVMABadgeID>()(row.badge), std::hash<std::string_view>()(row.rawValue));
    }
    for (std::int32_t rawValue = 1; rawValue <= 12; ++rawValue) {
        const auto message = CVMAMessageID::fromRawValue(rawValue);
        ASSERT_TRUE(message);
        EXPECT_EQ(std::hash<CVMAMessageID>()(*message), std::hash<std::int32_t>()(rawValue));
    }
    for (const CVMAMessagePortID port : {CVMAMessagePortID(CVMAMessagePortID::volumekeeper),
                                         CVMAMessagePortID(CVMAMessagePortID::finderExtension)}) {
        EXPECT_EQ(std::hash<CVMAMessagePortID>()(port),
                  std::hash<std::string_view>()(port.rawValue()));
    }
    EXPECT_EQ((std::unordered_set<CVMABadgeID>{CVMABadgeID::error, CVMABadgeID::error}).size(), 1U);
    EXPECT_EQ((std::unordered_set<CVMAMessageID>{CVMAMessageID::quit, CVMAMessageID::quit}).size(),
              1U);
    EXPECT_EQ((std::unordered_set<CVMAMessagePortID>{CVMAMessagePortID::volumekeeper,
                                                     CVMAMessagePortID::finderExtension})
                  .size(),
              2U);
}

} // namespace
} // namespace corvid
