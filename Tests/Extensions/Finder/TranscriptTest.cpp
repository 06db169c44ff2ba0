// The complete life of one extension, every log line and every call to the platform in order,
// compared whole with what Tests/Data/transcript.txt says. A change that means to alter the
// conversation writes the file again with CORVID_UPDATE_TRANSCRIPT=1 and shows it in its diff.

#include "FinderFixture.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace corvid {
namespace {

const char* const kTranscript = CORVID_TEST_DATA "/transcript.txt";

class Transcript : public FinderFixture {
protected:
    void chapter(const std::string& title) { calls().add("\n# " + title); }
};

TEST_F(Transcript, TheWholeLifeOfAnExtension) {
    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");

    chapter("start, logging switched on");
    auto controller = CVMAFinderSync::create();

    chapter("a folder comes on screen");
    controller->beginObservingDirectory(*URL::fileURL("/Volumes/Corvid", true));

    chapter("an item is shown, the host says synced");
    hostAnswers(CVMAMessageID::requestBadge, Value::string("synced"));
    controller->requestBadgeIdentifier(item("Shared Folders/Q3/Forecast v12.xlsx"));

    chapter("an item is shown, the host says none");
    hostAnswers(CVMAMessageID::requestBadge, Value::string("none"));
    controller->requestBadgeIdentifier(item("Notes.txt"));

    chapter("a temporary item is shown, then one in a hidden folder, then the volume itself");
    controller->requestBadgeIdentifier(item("~$Report.docx"));
    controller->requestBadgeIdentifier(item(".git/config"));
    controller->requestBadgeIdentifier(*URL::fileURL("/Volumes/Corvid", true));

    chapter("the host does not answer in time");
    setStatus(kHostPort, SendStatus::receiveTimeout);
    controller->requestBadgeIdentifier(item("Report.docx"));

    chapter("the host has gone");
    removePeer(kHostPort);
    controller->requestBadgeIdentifier(item("Report.docx"));

    chapter("the host is back; a menu opens on an item");
    addPeer(kHostPort);
    setStatus(kHostPort, SendStatus::success);
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry("Share", 1, "share:"), MenuItem::separator(),
                           entry("More", 2, "submenuAction:",
                                 {entry("Copy Path", 21, "copyPath:"),
                                  entry("Check Out", 22, "checkOut:")})}));
    finder().setTargetedURL(URL::fileURL("/Volumes/Corvid", true));
    finder().setSelectedItemURLs(std::vector<URL>{item("Report.docx"), item("été/資料.pdf")});
    const auto itemMenu = controller->menu(FIMenuKind::contextualMenuForItems);

    chapter("an entry of the submenu is clicked");
    controller->performAction(itemMenu->items.at(2)->submenu->items.at(1));

    chapter("a menu opens on the background of a folder, the host offers nothing");
    hostAnswers(CVMAMessageID::requestActions, menuReply({}));
    finder().setSelectedItemURLs(std::vector<URL>{*URL::fileURL("/Volumes/Corvid", true)});
    controller->menu(FIMenuKind::contextualMenuForContainer);

    chapter("badges are pushed: inProgress, none, one for a temporary item");
    const auto push = [&](const char* badge, const URL& url) {
        const Bytes message = archivedData(
            Value::dictionary({{"badgeID", Value::string(badge)}, {"path", Value::url(url)}}));
        ports().deliver(controller->portId(), CVMAMessageID::provideBadge, ByteView(message));
    };
    push("inProgress", item("Report.docx"));
    push("none", item("Report.docx"));
    push("error", item("Report.tmp"));

    chapter("the folder is shown no longer");
    controller->endObservingDirectory(*URL::fileURL("/Volumes/Corvid", true));

    chapter("teardown");
    controller.reset();

    std::string actual;
    for (const std::string& line : calls().lines()) {
        actual += line + '\n';
    }
    if (std::getenv("CORVID_UPDATE_TRANSCRIPT") != nullptr) {
        std::ofstream(kTranscript) << actual;
        GTEST_SKIP() << "wrote " << kTranscript;
    }
    std::ifstream file(kTranscript);
    std::stringstream expected;
    expected << file.rdbuf();
    EXPECT_EQ(actual, expected.str());
}

} // namespace
} // namespace corvid
