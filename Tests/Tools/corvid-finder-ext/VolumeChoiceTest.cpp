#include "Tools/corvid-finder-ext/VolumeChoice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>

namespace corvid {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

/// The folder, with "!" after one that is fixed; else the problem.
std::string choice(const VolumeSources& sources) {
    const auto result = chooseVolume(sources);
    if (const auto* const chosen = std::get_if<VolumeChoice>(&result)) {
        return chosen->volume.localFolder() + (chosen->isFixed ? "!" : "");
    }
    return std::get<std::string>(result);
}

TEST(VolumeChoice, TakesTheFirstThatIsNamed) {
    VolumeSources sources;
    sources.workingFolder = "/area";
    EXPECT_EQ(choice(sources), "There is no volume: name its folder with --volume DIR.");
    sources.home = "/home/ann";
    EXPECT_EQ(choice(sources), "/home/ann/Corvid");
    sources.hasUsualFolder = true;
    EXPECT_EQ(choice(sources), "/Volumes/Corvid");
    sources.host = "/served";
    EXPECT_EQ(choice(sources), "/served");
    sources.environment = "";
    EXPECT_EQ(choice(sources), "/served");
    sources.environment = "/served/";
    EXPECT_EQ(choice(sources), "/served!");
    sources.host.reset();
    sources.argument = "here/../there/";
    EXPECT_EQ(choice(sources), "/area/there!");
    sources.argument = "/there";
    EXPECT_EQ(choice(sources), "/there!");
}

TEST(VolumeChoice, NamesBothFoldersWhenTheHostsIsAnother) {
    VolumeSources sources;
    sources.host = "/served";
    sources.environment = "/wanted";
    EXPECT_THAT(choice(sources), AllOf(HasSubstr("/wanted"), HasSubstr("/served")));
    sources.argument = "/served";
    EXPECT_EQ(choice(sources), "/served!");
    sources.argument = "/served2";
    EXPECT_THAT(choice(sources), AllOf(HasSubstr("/served2"), HasSubstr("/served;")));
}

TEST(VolumeChoice, RefusesWhatCannotBeAVolume) {
    VolumeSources sources;
    sources.workingFolder = "/area";
    sources.environment = "relative";
    EXPECT_THAT(choice(sources), AllOf(HasSubstr("\"relative\""), HasSubstr("CVD_VOLUME_PATH")));
    sources.argument = "/line\nbreak";
    EXPECT_THAT(choice(sources), AllOf(HasSubstr("\"/line\\nbreak\""), HasSubstr("--volume")));
}

} // namespace
} // namespace corvid
