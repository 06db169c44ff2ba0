// `corvid logs` as a user runs it, on what a logging process wrote.

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace corvid {
namespace {

using testing::HasSubstr;
using testing::Not;

class LogsCommand : public testing::Test {
protected:
    TemporaryFolder state;
    std::string folder = state / "corvid/Logs/com.corvid.desktop.widget.FinderExt";

    struct Result {
        int status;
        std::vector<std::string> lines;
        std::string errors;
    };

    std::map<std::string, std::string> environment() const {
        return {{"XDG_STATE_HOME", state.path()},
                {"CVD_MAX_LOG_SIZE", "1"},
                {"CVD_VOLUME_PATH", "/srv/Sync"},
                {"HOME", "/home/me"}};
    }
    static std::vector<std::string> command(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {CORVID_BIN_DIR "/corvid", "logs"});
        return arguments;
    }
    Result run(std::vector<std::string> arguments) {
        ChildProcess process(command(std::move(arguments)), environment());
        Result result{0, {}, ""};
        while (auto line = process.readLine()) {
            result.lines.push_back(*line);
        }
        result.errors = process.readErrors();
        result.status = WEXITSTATUS(process.wait());
        return result;
    }
    /// Has a process write lines and end; its number.
    pid_t log(const std::string& step) {
        ChildProcess process({LOGGING_PROCESS, step}, environment());
        const pid_t identifier = process.identifier();
        EXPECT_EQ(process.wait(), 0);
        return identifier;
    }
    std::size_t fileCount() {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder), {}));
    }
};

TEST_F(LogsCommand, WithoutLogsSaysWhereTheyWouldBeAndMakesNothing) {
    const Result result = run({});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.lines.at(0), HasSubstr(folder));
    EXPECT_THAT(result.lines.at(1), HasSubstr("CVD_ENABLE_FINDER_EXT_LOGGING=1"));
    EXPECT_TRUE(run({"--json"}).lines.empty());
    EXPECT_FALSE(std::filesystem::exists(state / "corvid"));
}

TEST_F(LogsCommand, ListsTheFilesOfAllProcesses) {
    const pid_t first = log("log:1:1");
    const pid_t second = log("log:1:2");
    const Result result = run({"--json"});
    ASSERT_EQ(result.lines.size(), 2U);
    const auto one = nlohmann::json::parse(result.lines[0]);
    const auto two = nlohmann::json::parse(result.lines[1]);
    EXPECT_EQ(one["pid"], first);
    EXPECT_EQ(two["pid"], second);
    EXPECT_EQ(one["running"], false);
    EXPECT_EQ(one["path"], folder + "/" + one["name"].get<std::string>());
    EXPECT_LT(one["bytes"], two["bytes"]);
    EXPECT_EQ(run({}).lines.size(), 4U);
}

TEST_F(LogsCommand, TailFollowsFromFileToFileAndFromProcessToProcess) {
    log("log:1:5");
    ChildProcess tail(command({"tail", "-n", "2"}), environment());
    EXPECT_THAT(tail.readLine().value_or(""), HasSubstr("thread 0 line 3"));
    EXPECT_THAT(tail.readLine().value_or(""), HasSubstr("thread 0 line 4"));
    constexpr int kLines = 40'000;
    const auto first = log("log:1:" + std::to_string(kLines));
    log("log:1:3");
    for (const int count : {kLines, 3}) {
        for (int line = 0; line < count; ++line) {
            const auto shown = tail.readLine();
            ASSERT_TRUE(shown.has_value()) << tail.readErrors();
            ASSERT_TRUE(shown->ends_with("thread 0 line " + std::to_string(line))) << *shown;
        }
    }
    EXPECT_GT(fileCount(), 3U) << "process " << first << " did not roll";
}

TEST_F(LogsCommand, TailShowsTheLastLinesAcrossFiles) {
    log("log:1:2");
    log("log:1:2");
    const Result result = run({"tail", "--no-follow", "-n", "3"});
    ASSERT_EQ(result.lines.size(), 3U);
    EXPECT_THAT(result.lines[0], HasSubstr("line 1"));
    EXPECT_THAT(result.lines[1], HasSubstr("line 0"));
    EXPECT_THAT(result.lines[2], HasSubstr("line 1"));
    EXPECT_EQ(run({"tail", "--no-follow"}).lines.size(), 4U);
}

TEST_F(LogsCommand, PruneSaysFirstWhatItWouldDo) {
    log("log:1:1");
    log("log:1:1");
    EXPECT_EQ(run({"prune"}).status, 2);
    EXPECT_EQ(run({"prune", "--keep", "-1"}).status, 2);

    const Result said = run({"prune", "--keep", "1"});
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.lines.at(0), "To be removed: 1 of 2 log files:");
    EXPECT_THAT(said.lines.back(), HasSubstr("--yes"));
    EXPECT_EQ(fileCount(), 2U);

    const Result done = run({"prune", "--keep", "1", "--yes", "--json"});
    ASSERT_EQ(done.lines.size(), 1U);
    EXPECT_EQ(nlohmann::json::parse(done.lines[0])["removed"], true);
    EXPECT_EQ(fileCount(), 1U);
    EXPECT_EQ(run({"prune", "--older-than", "1", "--yes"}).lines.at(0),
              "Nothing to remove of 1 log file.");
}

TEST_F(LogsCommand, PruneLeavesTheFilesOfAProcessThatRuns) {
    ChildProcess process({LOGGING_PROCESS, "log:1:1", "flush", "say:ready", "wait"}, environment());
    EXPECT_EQ(process.readLine(), "ready");
    EXPECT_EQ(run({"prune", "--keep", "0", "--yes"}).status, 0);
    EXPECT_EQ(fileCount(), 1U);
    process.goOn();
    process.wait();
    EXPECT_EQ(run({"prune", "--keep", "0", "--yes"}).status, 0);
    EXPECT_EQ(fileCount(), 0U);
}

TEST_F(LogsCommand, ABundleTellsNoNamesUnlessAsked) {
    const pid_t process = log("log:1:1");
    const std::string name = "CVMAExt_" + std::to_string(process) + "_2000_01_01_00_00_00.log";
    std::ofstream(folder + "/" + name)
        << "2000-01-01 00:00:00.000 +00:00 1:1 verbose <UI> Requesting badge for url = "
           "/Volumes/Corvid/Secret plan/My salary.xlsx\n"
           "2000-01-01 00:00:00.000 +00:00 1:1 debug   <UI> MessagePort: Request badge for url = "
           "file:///Volumes/Corvid/Secret%20plan/My%20salary.xlsx\n"
           "2000-01-01 00:00:00.000 +00:00 1:1 verbose <UI> Set badge with id =synced for url "
           "=/home/me/Corvid/Secret plan/My salary.xlsx\n"
           "2000-01-01 00:00:00.000 +00:00 1:1 verbose <UI> Set badge with id =synced for url "
           "=/srv/Sync/Secret plan/My salary.xlsx\n";
    const auto unpacked = [&name](const std::string& archive) {
        const std::string target = archive + ".d";
        std::filesystem::create_directory(target);
        EXPECT_EQ(std::system(("tar -xzf " + archive + " -C " + target).c_str()), 0);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(target), {}), 3);
        std::ifstream in(target + "/" + name);
        return std::string{std::istreambuf_iterator<char>(in), {}};
    };

    const std::string archive = state / "redacted.tar.gz";
    const Result result = run({"bundle", archive, "--json"});
    ASSERT_EQ(result.status, 0) << result.errors;
    const auto made = nlohmann::json::parse(result.lines.at(0));
    EXPECT_EQ(made["path"], archive);
    EXPECT_EQ(made["files"], 2);
    EXPECT_EQ(made["redacted"], true);
    const std::string redacted = unpacked(archive);
    EXPECT_THAT(redacted, Not(HasSubstr("Secret")));
    EXPECT_THAT(redacted, Not(HasSubstr("salary")));
    EXPECT_THAT(redacted, testing::ContainsRegex("/Volumes/Corvid/[0-9a-f]{10}/[0-9a-f]{10}.xlsx"));
    const std::string shown = run({"tail", "--no-follow", "--redact", "-n", "100"}).lines.at(1);
    EXPECT_THAT(redacted, HasSubstr(shown.substr(shown.find("/Volumes"))));

    const std::string plain = state / "plain.tar.gz";
    EXPECT_EQ(run({"bundle", plain, "--no-redact"}).status, 0);
    EXPECT_THAT(unpacked(plain), HasSubstr("Secret plan/My salary.xlsx"));

    const Result again = run({"bundle", plain});
    EXPECT_EQ(again.status, 1);
    EXPECT_THAT(again.errors, HasSubstr("cannot write " + plain + ": File exists"));
    EXPECT_EQ(std::filesystem::status(archive).permissions(), std::filesystem::perms(0600));
}

TEST_F(LogsCommand, ABundleOfNothingIsAnError) {
    const Result result = run({"bundle", state / "none.tar.gz"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("there are no logs in " + folder));
    EXPECT_FALSE(std::filesystem::exists(state / "none.tar.gz"));
}

} // namespace
} // namespace corvid
