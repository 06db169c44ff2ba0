// A file name that would forge lines or command a terminal, in every log line that names an item.

#include "FinderFixture.h"

#include "App/Reporting/CVDDLog.h"
#include "Extensions/Finder/CVMAMessagePort.h"

#include <sstream>

namespace corvid {
namespace {

class HostileNames : public FinderFixture {
protected:
    /// What the first log file holds, a line each.
    std::vector<std::string> loggedLines() {
        CVDDLog::flushLog();
        std::error_code error;
        const std::string folder = CVMALogFileManager::corvidLogsDir();
        const auto files = platform_.fileManager.regularFilesOfDirectoryAtPath(folder, error);
        EXPECT_EQ(files.size(), 1U);
        std::istringstream in(
            platform_.fileManager.contentsOfFile(folder + "/" + files.at(0).name).value_or(""));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(HostileNames, EveryLogCallGivesOneHarmlessLine) {
    platform_.processInfo.setEnvironment("CVD_ENABLE_FINDER_EXT_LOGGING", "1");
    platform_.processInfo.setEnvironment("CVD_MAX_LOG_SIZE", "49");
    std::string name = "x\n2026-11-16 03:02:05.678 +00:00 1:1 error   forged\r\t\v\f\b\x7f\x1b[2J"
                       "\x1b]0;title\x07 \xC2\x85\xC2\x9B\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xAE"
                       "\xE2\x81\xA6\xE2\x81\xA9\xE2\x80\x8F\xEF\xBB\xBF \"] ";
    name.resize(3996, '\n');
    const URL url = item(name + ".txt");
    ASSERT_EQ(url.path(), "/Volumes/Corvid/" + name + ".txt");

    auto controller = CVMAFinderSync::create();
    controller->beginObservingDirectory(url);
    for (const char* badge : {"synced", "none", "no badge at all"}) {
        if (badge != std::string("no badge at all")) {
            hostAnswers(CVMAMessageID::requestBadge, Value::string(badge));
        } else {
            hostAnswers(CVMAMessageID::requestBadge, Value::url(url));
        }
        controller->requestBadgeIdentifier(url);
    }
    hostAnswers(CVMAMessageID::requestActions,
                menuReply({entry(name, 1, "share:", {entry(name, 2, "copy:")})}));
    finder().setTargetedURL(url);
    finder().setSelectedItemURLs(std::vector<URL>{url, url});
    const auto menu = controller->menu(FIMenuKind::contextualMenuForItems);
    controller->performAction(menu->items.at(0));
    hostAnswers(CVMAMessageID::requestActions, Value::string(name));
    controller->menu(FIMenuKind::contextualMenuForItems);
    ports().deliver(controller->portId(), CVMAMessageID::provideBadge,
                    ByteView(archivedData(Value::dictionary(
                        {{"badgeID", Value::string("error")}, {"path", Value::url(url)}}))));
    CVMAMessagePort::provide({kHostPort, name}, CVMABadgeID::synced, url);
    setStatus(kHostPort, SendStatus::receiveTimeout);
    controller->requestBadgeIdentifier(url);
    controller->endObservingDirectory(url);

    const std::vector<std::string> messages = reporting_.messages();
    const std::vector<std::string> lines = loggedLines();
    // The first messages come before there is a log.
    ASSERT_GE(messages.size(), lines.size());
    const std::size_t early = messages.size() - lines.size();
    EXPECT_LE(early, 2U);
    std::size_t naming = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(std::all_of(lines[i].begin(), lines[i].end(), [](char c) {
            return c >= ' ' && c <= '~';
        })) << lines[i].substr(0, 200);
        EXPECT_TRUE(lines[i].starts_with("2026-11-16 03:02:05.678 +00:00 4242:"));
        naming += lines[i].find("forged") != std::string::npos ? 1U : 0U;
        // Line by line what was logged, however much of it is escaped.
        const std::string start = messages[early + i].substr(0, 20);
        EXPECT_NE(lines[i].find(start), std::string::npos) << start;
    }
    EXPECT_GE(naming, 15U);
    controller.reset();
}

} // namespace
} // namespace corvid
