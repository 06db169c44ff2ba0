#include "Core/Base/VolumeMapping.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace corvid {
namespace {

using namespace std::string_view_literals;

struct Pair {
    std::string_view folder;
    std::string_view local;
    std::string_view volume;
};

TEST(VolumeMapping, MapsBothWays) {
    const Pair pairs[] = {
        {"/home/ann/Corvid", "/home/ann/Corvid", "/Volumes/Corvid"},
        {"/home/ann/Corvid/", "/home/ann/Corvid", "/Volumes/Corvid"},
        {"/home/ann/Corvid", "/home/ann/Corvid/a/b", "/Volumes/Corvid/a/b"},
        {"/home/ann/Corvid", "/home/ann/Corvid/.hidden", "/Volumes/Corvid/.hidden"},
        {"/home/ann/Corvid", "/home/ann/Corvid/...", "/Volumes/Corvid/..."},
        {"/home/ann/Corvid", "/home/ann/Corvid/line\nbreak", "/Volumes/Corvid/line\nbreak"},
        {"/home/ann/Corvid", "/home/ann/Corvid/\xFF", "/Volumes/Corvid/\xFF"},
        {"/home/ann/Corvid", "/home/ann/Corvid/Corvid", "/Volumes/Corvid/Corvid"},
        {"/", "/", "/Volumes/Corvid"},
        {"/", "/etc", "/Volumes/Corvid/etc"},
        {"/Volumes/Corvid", "/Volumes/Corvid/a", "/Volumes/Corvid/a"},
        {"/Volumes", "/Volumes/Corvid", "/Volumes/Corvid/Corvid"},
    };
    for (const Pair& pair : pairs) {
        SCOPED_TRACE(std::string(pair.folder) + " " + std::string(pair.local));
        const auto mapping = VolumeMapping::make(pair.folder);
        ASSERT_TRUE(mapping);
        EXPECT_EQ(mapping->toVolume(pair.local), pair.volume);
        EXPECT_EQ(mapping->toLocal(pair.volume), pair.local);
    }
}

TEST(VolumeMapping, IgnoresOneFinalSlash) {
    const auto mapping = VolumeMapping::make("/v");
    EXPECT_EQ(mapping->toVolume("/v/"), "/Volumes/Corvid");
    EXPECT_EQ(mapping->toVolume("/v/a/"), "/Volumes/Corvid/a");
    EXPECT_EQ(mapping->toLocal("/Volumes/Corvid/a/"), "/v/a");
}

TEST(VolumeMapping, RefusesWhatIsNotBelowTheFolder) {
    const auto mapping = VolumeMapping::make("/home/ann/Corvid");
    for (const std::string_view path :
         {""sv, "/"sv, "/home/ann"sv, "/home/ann/Corvid2"sv, "/home/ann/Corvi"sv,
          "home/ann/Corvid"sv, "/home/ann/corvid"sv, "/home/ann/Corvid//a"sv,
          "/home/ann/Corvid/a//"sv, "/home/ann/Corvid/."sv, "/home/ann/Corvid/../x"sv,
          "/home/ann/Corvid/a/.."sv, "/Volumes/Corvid/a"sv}) {
        EXPECT_EQ(mapping->toVolume(path), std::nullopt) << path;
    }
    for (const std::string_view path :
         {""sv, "/Volumes"sv, "/Volumes/Corvid2"sv, "/volumes/corvid"sv, "/Volumes/Corvid/../x"sv,
          "/Volumes/Corvid//a"sv, "Volumes/Corvid/a"sv, "/home/ann/Corvid/a"sv}) {
        EXPECT_EQ(mapping->toLocal(path), std::nullopt) << path;
    }
}

TEST(VolumeMapping, RefusesAFolderThatCannotBeOne) {
    for (const std::string_view folder : {""sv, "Corvid"sv, "./Corvid"sv, "/a//b"sv, "/a/../b"sv,
                                          "/a/./b"sv, "/a/.."sv, "/a\nb"sv, "/a\0b"sv}) {
        EXPECT_EQ(VolumeMapping::make(folder), std::nullopt) << folder;
    }
    EXPECT_EQ(VolumeMapping::make("/a/")->localFolder(), "/a");
    EXPECT_EQ(VolumeMapping::make("/")->localFolder(), "/");
}

} // namespace
} // namespace corvid
