#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "FinderFixture.h"

namespace corvid {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Badges : public FinderFixture {
protected:
    Badges() {
        hostAnswers(CVMAMessageID::requestBadge, Value::string("synced"));
        happened();
    }
    /// Whether the host is asked about an item of the volume.
    bool isAsked(const URL& url) {
        controller_->requestBadgeIdentifier(url);
        return !happened().empty();
    }

    std::shared_ptr<CVMAFinderSync> controller_ = CVMAFinderSync::create();
};

TEST_F(Badges, TheVolumeItselfIsNeverAskedAboutNorLogged) {
    controller_->requestBadgeIdentifier(*URL::fileURL("/Volumes/Corvid"));
    controller_->requestBadgeIdentifier(*URL::fileURL("/Volumes/Corvid", true));
    EXPECT_THAT(happened(), IsEmpty());
}

TEST_F(Badges, TemporaryItemsAndWhatLiesDirectlyInOneAreNeverAskedAbout) {
    struct Row {
        const char* name;
        bool asked;
    };
    constexpr Row kRows[] = {
        {"Report.docx", true},
        {"~$Report.docx", false},
        {"~$Report.pdf", true},
        {".DS_Store", false},
        {"DS_Store", true},
        {".git/config", false},
        {"git/config", true},
        {"movie.mp4.crdownload", false},
        {"movie.mp4", true},
        // The parent alone is temporary.
        {"Folder.tmp/Report.docx", false},
        {"Folder/Report.docx", true},
        // Two levels up is looked at no more.
        {"Folder.tmp/Inner/Report.docx", true},
        // A blank reaches the rules as %20, so this literal does not match, and
        {"Adobe Photoshop Autosave", true},
        // this one is caught by its extension.
        {"Word Work File D_1.tmp", false},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(isAsked(item(row.name)), row.asked) << row.name;
    }
}

TEST_F(Badges, ComparesTheVolumesPathToTheLetter) {
    EXPECT_TRUE(isAsked(*URL::fileURL("/Volumes/corvid")));
    EXPECT_TRUE(isAsked(*URL::fileURL("/Volumes/Corvid2")));
}

TEST_F(Badges, AnItemGetsTheBadgeThatTheHostNames) {
    controller_->requestBadgeIdentifier(item("Q3 Plan.xlsx"));
    EXPECT_THAT(
        happened(),
        Contains("setBadgeIdentifier synced file:///Volumes/Corvid/Q3%20Plan.xlsx").Times(1));
    EXPECT_THAT(reporting_.messages(), Contains("<UI> Setting badge with id = synced for url = "
                                                "/Volumes/Corvid/Q3 Plan.xlsx"));
}

TEST_F(Badges, AnAnsweredNoneLeavesTheBadgeAsItIs) {
    hostAnswers(CVMAMessageID::requestBadge, Value::string("none"));
    controller_->requestBadgeIdentifier(item("a.txt"));
    const auto lines = happened();
    EXPECT_EQ(lines.back(), "log 6 <UI> Returning without adding badge for url = "
                            "/Volumes/Corvid/a.txt");
    EXPECT_THAT(lines, Not(Contains(HasSubstr("setBadgeIdentifier"))));
}

TEST_F(Badges, NoAnswerShowsTheCloud) {
    removePeer(kHostPort);
    controller_->requestBadgeIdentifier(item("a.txt"));
    EXPECT_THAT(
        happened(),
        ElementsAre("log 6 <UI> Requesting badge for url = /Volumes/Corvid/a.txt",
                    "log 5 <UI> MessagePort: Request badge for url = file:///Volumes/Corvid/a.txt",
                    "createRemote com.corvid.desktop.widget -> absent",
                    "log 2 <UI> MessagePort: Unable to open server port",
                    "log 2 <UI> MessagePort: Unexpected Badge response for url = "
                    "file:///Volumes/Corvid/a.txt",
                    "log 6 <UI> Setting badge with id = cloud for url = /Volumes/Corvid/a.txt",
                    "setBadgeIdentifier cloud file:///Volumes/Corvid/a.txt"));
}

TEST_F(Badges, EveryRequestAsksAgain) {
    controller_->requestBadgeIdentifier(item("a.txt"));
    const auto first = happened();
    controller_->requestBadgeIdentifier(item("a.txt"));
    EXPECT_EQ(happened(), first);
}

TEST_F(Badges, APushedBadgeIsSetWithItsOwnLogLine) {
    controller_->setBadge(CVMABadgeID::inProgress, item("a b.txt"));
    EXPECT_THAT(happened(), ElementsAre("log 6 <UI> Set badge with id =inProgress for url "
                                        "=/Volumes/Corvid/a b.txt",
                                        "setBadgeIdentifier inProgress "
                                        "file:///Volumes/Corvid/a%20b.txt"));
}

TEST_F(Badges, APushedNoneIsSetLikeAnyOther) {
    controller_->setBadge(CVMABadgeID::none, item("a.txt"));
    EXPECT_THAT(happened(), Contains("setBadgeIdentifier none file:///Volumes/Corvid/a.txt"));
}

TEST_F(Badges, APushLooksAtTheItemAloneNotAtItsFolder) {
    controller_->setBadge(CVMABadgeID::error, *URL::fileURL("/Volumes/Corvid"));
    controller_->setBadge(CVMABadgeID::error, item("Report.tmp"));
    EXPECT_THAT(happened(), IsEmpty());
    controller_->setBadge(CVMABadgeID::error, item("Folder.tmp/Report.docx"));
    EXPECT_THAT(happened(),
                Contains("setBadgeIdentifier error file:///Volumes/Corvid/Folder.tmp/Report.docx"));
}

TEST_F(Badges, APushLooksAtTheURLsTextNotAtThePath) {
    // By its path this is a scratch file; in the URL's text the blank is escaped.
    controller_->setBadge(CVMABadgeID::error, item("Adobe Photoshop Autosave"));
    EXPECT_THAT(happened(), Contains("setBadgeIdentifier error "
                                     "file:///Volumes/Corvid/Adobe%20Photoshop%20Autosave"));
    EXPECT_TRUE(isTemporaryItem(item("Adobe Photoshop Autosave").path()));
}

} // namespace
} // namespace corvid
