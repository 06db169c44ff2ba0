#include "FinderFixture.h"

namespace corvid {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using Observation = FinderFixture;

TEST_F(Observation, BeginAndEndArePassedOnWithTheirOwnTexts) {
    const auto controller = CVMAFinderSync::create();
    happened();

    controller->beginObservingDirectory(*URL::fileURL("/Volumes/Corvid/A b", true));
    EXPECT_THAT(happened(),
                ElementsAre("log 6 <UI> BeginObservingDirectory at : /Volumes/Corvid/A b",
                            "log 5 <UI> MessagePort: Adding path = file:///Volumes/Corvid/A%20b/ "
                            "from path cache",
                            "createRemote com.corvid.desktop.widget",
                            StartsWith("sendRequest com.corvid.desktop.widget id=6 "),
                            "releaseRemote com.corvid.desktop.widget"));
    const Value begun = lastPayload(CVMAMessageID::updatePathCache);
    ASSERT_NE(begun.asDictionary(), nullptr);
    EXPECT_EQ(begun.asDictionary()->entries.size(), 2U);
    EXPECT_EQ(*begun.asDictionary()->find("path")->asURL(),
              *URL::fileURL("/Volumes/Corvid/A b", true));
    EXPECT_TRUE(*begun.asDictionary()->find("add")->asBoolean());

    controller->endObservingDirectory(*URL::fileURL("/Volumes/Corvid/A b", true));
    EXPECT_THAT(happened(), ElementsAre("log 6 <UI> endObservingDirectory at : /Volumes/Corvid/A b",
                                        "log 5 <UI> MessagePort: Removing path = "
                                        "file:///Volumes/Corvid/A%20b/ from path cache",
                                        "createRemote com.corvid.desktop.widget",
                                        StartsWith("sendRequest com.corvid.desktop.widget id=6 "),
                                        "releaseRemote com.corvid.desktop.widget"));
    const Value ended = lastPayload(CVMAMessageID::updatePathCache);
    EXPECT_FALSE(*ended.asDictionary()->find("add")->asBoolean());
}

TEST_F(Observation, NothingIsFilteredAndNothingIsPaired) {
    const auto controller = CVMAFinderSync::create();
    for (const URL& url : {*URL::fileURL("/Volumes/Corvid", true), item(".git"), item("a.tmp"),
                           *URL::fileURL("/elsewhere", true)}) {
        happened();
        controller->endObservingDirectory(url);
        EXPECT_EQ(happened().size(), 5U) << url.absoluteString();
        controller->beginObservingDirectory(url);
        EXPECT_EQ(happened().size(), 5U) << url.absoluteString();
    }
}

} // namespace
} // namespace corvid
