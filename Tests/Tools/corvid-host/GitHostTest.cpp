// `corvid-host git` in a process of its own, and a test that speaks to it as an extension does.

#include "Tests/HostKit/ExtensionDouble.h"
#include "Tests/HostKit/HostProcess.h"
#include "Tests/Tools/corvid-host/GitFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// In which every program ends that is told to, whatever hangs; a busy machine may need more.
constexpr std::chrono::seconds kLongestEnd(15);

class GitHostTest : public GitFixture {
protected:
    void SetUp() override {
        GitFixture::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        const std::string runtime = (top_ / "run").string();
        fs::create_directory(runtime);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
            unsetenv(name);
        }
        for (const char* file : {"a.txt", "b.txt", "dir/c.txt"}) {
            write(file, "first\n");
        }
        commitAll();
    }

    void start(std::vector<std::string> options = {}) {
        std::vector<std::string> command{CORVID_BIN_DIR "/corvid-host", "git", work_, "--json"};
        command.insert(command.end(), options.begin(), options.end());
        host_ = std::make_unique<HostProcess>(command);
        ASSERT_THAT(host_->waitForLine("\"serving\""), HasSubstr(work_));
        extension_ = std::make_unique<ExtensionDouble>("test");
        ASSERT_TRUE(extension_->registerPort());
    }

    /// Titles, with "-" for a line, "(…)" around what is disabled, and submenus in brackets.
    static std::vector<std::string> titles(const std::vector<std::shared_ptr<MenuItem>>& items) {
        std::vector<std::string> texts;
        for (const auto& item : items) {
            std::string text = item->isSeparator ? "-" : item->title;
            if (!item->isEnabled && !item->isSeparator) {
                text = "(" + text + ")";
            }
            if (item->submenu) {
                for (const std::string& sub : titles(item->submenu->items)) {
                    text += " [" + sub + "]";
                }
            }
            texts.push_back(text);
        }
        return texts;
    }

    std::shared_ptr<MenuItem> entry(const std::string& item, const std::string& title) {
        const auto menu = extension_->menu({item});
        for (const auto& candidate : menu.value()) {
            if (candidate->title == title) {
                return candidate;
            }
            for (const auto& sub : candidate->submenu ? candidate->submenu->items
                                                      : std::vector<std::shared_ptr<MenuItem>>()) {
                if (sub->title == title) {
                    return sub;
                }
            }
        }
        ADD_FAILURE() << "no entry " << title << " on " << item;
        return nullptr;
    }

    std::unique_ptr<HostProcess> host_;
    std::unique_ptr<ExtensionDouble> extension_;
};

TEST_F(GitHostTest, badgesFollowTheFiles) {
    start();
    EXPECT_EQ(extension_->badge("/a.txt"), "synced");
    EXPECT_EQ(extension_->badge("/dir"), "synced");
    extension_->show("");
    extension_->show("/dir");
    write("dir/c.txt", "second\n");
    extension_->waitForPush("/dir/c.txt", "inProgress");
    extension_->waitForPush("/dir", "inProgress");
    write("dir/new.txt", "");
    extension_->waitForPush("/dir/new.txt", "cloud");
    extension_->waitForPush("/dir", "syncedpartial");
    git("add -A");
    extension_->waitForPush("/dir/new.txt", "finishedTransfer");
    extension_->waitForPush("/dir", "finishedTransfer");
    git("commit -q -m x");
    extension_->waitForPush("/dir", "synced");
    write(".gitignore", "new.txt\n");
    write("dir/.gitignore", "*.o\n");
    write("dir/x.o", "");
    extension_->waitForPush("/dir/.gitignore", "cloud");
    EXPECT_EQ(extension_->badge("/dir/x.o"), "none");
    fs::permissions(fs::path(work_) / "a.txt", fs::perms::none);
    extension_->waitForPush("/a.txt", "accessDenied");
}

TEST_F(GitHostTest, pushesOnlyForFoldersThatAreShown) {
    start();
    extension_->show("/dir");
    write("a.txt", "second\n");
    write("dir/c.txt", "second\n");
    extension_->waitForPush("/dir/c.txt", "inProgress");
    EXPECT_EQ(extension_->badge("/a.txt"), "inProgress");
    EXPECT_EQ(extension_->pushCount(), 1U);
}

TEST_F(GitHostTest, newFoldersAreFollowed) {
    start();
    extension_->show("");
    write("new/deep/x", "");
    extension_->waitForPush("/new", "cloud");
    fs::rename(fs::path(work_) / "new", fs::path(work_) / "moved");
    extension_->waitForPush("/moved", "cloud");
    EXPECT_EQ(extension_->badge("/new/deep/x"), "none");
    EXPECT_EQ(extension_->badge("/moved/deep/x"), "cloud");
    extension_->show("/moved/deep");
    write("moved/deep/y", "");
    extension_->waitForPush("/moved/deep/y", "cloud");
    git("add -A");
    extension_->waitForPush("/moved", "finishedTransfer");
}

TEST_F(GitHostTest, menuFitsTheSelection) {
    start();
    extension_->show("");
    write("a.txt", "second\n");
    git("add a.txt");
    write(".gitignore", "*.o\n");
    write("x.o", "");
    write("new", "");
    extension_->waitForPush("/new", "cloud");
    extension_->waitForPush("/a.txt", "finishedTransfer");
    const std::string copy = "Copy [Path] [Path in Repository]";
    EXPECT_THAT(titles(*extension_->menu({"/b.txt"})),
                ElementsAre("(Stage)", "(Unstage)", "-", "(Show Changes)", "Mark as Checked Out",
                            "-", copy));
    EXPECT_THAT(
        titles(*extension_->menu({"/a.txt", "/new"})),
        ElementsAre("Stage", "Unstage", "-", "Show Changes", "Mark as Checked Out", "-", copy));
    EXPECT_THAT(titles(*extension_->menu({"/new"})),
                ElementsAre("Stage", "(Unstage)", "-", "(Show Changes)", "-", copy));
    EXPECT_THAT(titles(*extension_->menu({"/x.o"})), ElementsAre(copy));
}

TEST_F(GitHostTest, clicksActAndPush) {
    start();
    extension_->show("");
    write("a.txt", "second\n");
    extension_->waitForPush("/a.txt", "inProgress");
    extension_->click(entry("/a.txt", "Stage"), {"/a.txt"});
    extension_->waitForPush("/a.txt", "finishedTransfer");
    EXPECT_EQ(git("status --porcelain"), "M  a.txt\n");
    extension_->click(entry("/a.txt", "Unstage"), {"/a.txt"});
    extension_->waitForPush("/a.txt", "inProgress");
    EXPECT_EQ(git("status --porcelain"), " M a.txt\n");
    extension_->click(entry("/b.txt", "Mark as Checked Out"), {"/b.txt"});
    extension_->waitForPush("/b.txt", "checkedOut");
    EXPECT_THAT(git("ls-files -v"), HasSubstr("h b.txt"));
    extension_->click(entry("/b.txt", "Check In"), {"/b.txt"});
    extension_->waitForPush("/b.txt", "synced");
    extension_->click(entry("/a.txt", "Show Changes"), {"/a.txt"});
    EXPECT_THAT(host_->waitForLine("\"changes\""), HasSubstr("-first\\n+second"));
}

TEST_F(GitHostTest, folderIsStagedWithAllThatIsInIt) {
    start();
    extension_->show("");
    write("dir/c.txt", "second\n");
    write("dir/deep/d.txt", "new\n");
    extension_->waitForPush("/dir", "syncedpartial");
    extension_->click(entry("/dir", "Stage"), {"/dir"});
    extension_->waitForPush("/dir", "finishedTransfer");
    EXPECT_EQ(git("status --porcelain"), "M  dir/c.txt\nA  dir/deep/d.txt\n");
}

TEST_F(GitHostTest, readOnlyOffersNothingThatWrites) {
    start({"--read-only"});
    extension_->show("");
    write("a.txt", "second\n");
    extension_->waitForPush("/a.txt", "inProgress");
    EXPECT_THAT(titles(*extension_->menu({"/a.txt"})),
                ElementsAre("Show Changes", "-", "Copy [Path] [Path in Repository]"));
    const auto before = fs::last_write_time(fs::path(work_) / ".git/index");
    auto forged = entry("/a.txt", "Show Changes");
    forged->action = Selector{"stage"};
    forged->tag = 0x774edd56a2f1a246; // of "stage"
    extension_->click(forged, {"/a.txt"});
    EXPECT_THAT(host_->waitForLine("\"problem\""), HasSubstr("read only"));
    EXPECT_EQ(fs::last_write_time(fs::path(work_) / ".git/index"), before);
}

TEST_F(GitHostTest, copiesThroughTheDesktopsProgram) {
    const fs::path bin = top_ / "bin";
    const fs::path copied = top_ / "copied";
    fs::create_directory(bin);
    std::ofstream(bin / "wl-copy") << "#!/bin/sh\ncat >'" << copied.string() << "'\n";
    fs::permissions(bin / "wl-copy", fs::perms::owner_all);
    setenv("WAYLAND_DISPLAY", "none", 1);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (bin.string() + ":" + path).c_str(), 1);
    start();
    extension_->click(entry("/dir/c.txt", "Path in Repository"), {"/dir/c.txt", "/a.txt"});
    EXPECT_THAT(host_->waitForLine("\"copied\""), HasSubstr("dir/c.txt\\na.txt"));
    std::string text;
    std::getline(std::ifstream(copied), text, '\0');
    EXPECT_EQ(text, "dir/c.txt\na.txt");
    setenv("PATH", path.c_str(), 1);
}

TEST_F(GitHostTest, hugeBurstEndsInTheRightState) {
    start();
    extension_->show("");
    constexpr int kFiles = 10000;
    fs::create_directory(fs::path(work_) / "many");
    for (int i = 0; i < kFiles; ++i) {
        write("many/" + std::to_string(i), "");
    }
    extension_->waitForPush("/many", "cloud");
    git("add -A");
    extension_->waitForPush("/many", "finishedTransfer");
    for (int i = 0; i < kFiles; i += 997) {
        EXPECT_EQ(extension_->badge("/many/" + std::to_string(i)), "finishedTransfer") << i;
    }
    // "many" is the one item of a shown folder that has changed, a handful of times at most.
    EXPECT_LT(extension_->pushCount(), 10U);
}

TEST_F(GitHostTest, stopsCleanlyOnEitherSignal) {
    for (const int signal : {SIGTERM, SIGINT}) {
        start();
        host_->signal(signal);
        EXPECT_THAT(host_->waitForLine("\"stopped\""), HasSubstr("stopped"));
        EXPECT_EQ(host_->wait(), 0);
        EXPECT_FALSE(fs::exists(top_ / "run/corvid/host.volume"));
        EXPECT_EQ(extension_->badge("/a.txt"), "(no answer)");
        EXPECT_EQ(extension_->status(), SendStatus::isInvalid);
        extension_.reset();
    }
}

TEST_F(GitHostTest, everyLineOfJsonIsAnObject) {
    write("odd \xff name\n", "x");
    start();
    extension_->show("");
    write("odd \xff name\n", "y");
    fs::remove(fs::path(work_) / "a.txt");
    const auto line = nlohmann::json::parse(host_->waitForLine("\"shown\""));
    EXPECT_EQ(line["event"], "shown");
    EXPECT_EQ(line["folder"], work_);
    host_->signal(SIGTERM);
    EXPECT_EQ(nlohmann::json::parse(host_->waitForLine("\"stopped\""))["event"], "stopped");
}

TEST_F(GitHostTest, outputThatNobodyReadsHoldsNobodyUp) {
    start();
    // More than the pipe holds; each is a line that the answering thread says.
    for (int i = 0; i < 1500; ++i) {
        ASSERT_TRUE(extension_->show("/dir", i % 2 == 0)) << i;
    }
    extension_->show("");
    write("a.txt", "second\n");
    extension_->waitForPush("/a.txt", "inProgress");
    const auto start = std::chrono::steady_clock::now();
    host_->signal(SIGTERM);
    EXPECT_EQ(host_->wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kLongestEnd);
}

TEST_F(GitHostTest, clipboardProgramThatHangsHoldsUpNobodyForLong) {
    const fs::path bin = top_ / "bin";
    fs::create_directory(bin);
    std::ofstream(bin / "wl-copy") << "#!/bin/sh\nexec sleep 1000\n";
    fs::permissions(bin / "wl-copy", fs::perms::owner_all);
    setenv("WAYLAND_DISPLAY", "none", 1);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (bin.string() + ":" + path).c_str(), 1);
    start();
    extension_->show("");
    const auto copy = entry("/a.txt", "Path");
    extension_->click(copy, {"/a.txt"});
    EXPECT_EQ(extension_->badge("/a.txt"), "synced");
    EXPECT_THAT(host_->waitForLine("\"problem\""), HasSubstr("wl-copy did not end"));
    write("a.txt", "second\n");
    extension_->waitForPush("/a.txt", "inProgress");
    extension_->click(copy, {"/a.txt"});
    host_->waitForLine("\"action\"");
    const auto start = std::chrono::steady_clock::now();
    host_->signal(SIGTERM);
    EXPECT_EQ(host_->wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kLongestEnd);
    setenv("PATH", path.c_str(), 1);
}

TEST_F(GitHostTest, pipesInTheTreeHoldNobodyUp) {
    const std::string rules = work_ + "/dir/.gitignore";
    ASSERT_EQ(mkfifo(rules.c_str(), 0600), 0);
    start();
    EXPECT_EQ(extension_->badge("/dir/c.txt"), "synced");
    extension_->show("");
    extension_->show("/dir");
    // A tracked file becomes one, and the rules of the top too.
    fs::remove(fs::path(work_) / "b.txt");
    ASSERT_EQ(mkfifo((work_ + "/b.txt").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((work_ + "/.gitignore").c_str(), 0600), 0);
    extension_->waitForPush("/b.txt", "inProgress");
    extension_->click(entry("/b.txt", "Stage"), {"/b.txt"});
    EXPECT_THAT(host_->waitForLine("\"problem\""), HasSubstr("b.txt cannot be staged"));
    write("dir/c.txt", "second\n");
    extension_->waitForPush("/dir/c.txt", "inProgress");
    host_->signal(SIGTERM);
    EXPECT_EQ(host_->wait(), 0);
}

TEST_F(GitHostTest, eventBeyondTheLongestPathIsSeen) {
    int folder = open(work_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string name(250, 'n');
    std::string deep;
    for (int level = 0; level < 20; ++level) {
        ASSERT_EQ(mkdirat(folder, name.c_str(), 0700), 0);
        const int next = openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(folder);
        folder = next;
        deep += "/" + name;
    }
    start();
    extension_->show(deep);
    extension_->show(deep.substr(0, deep.rfind('/')));
    close(openat(folder, "x", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    extension_->waitForPush(deep + "/x", "cloud");
    EXPECT_EQ(extension_->badge(deep), "cloud");
    unlinkat(folder, "x", 0);
    extension_->waitForPush(deep, "none");
    close(folder);
}

TEST_F(GitHostTest, scanEndsAtOnceWhenAsked) {
    for (int i = 0; i < 300; ++i) {
        fs::create_directories(fs::path(work_) / std::to_string(i) / "x");
    }
    HostProcess host({CORVID_BIN_DIR "/corvid-host", "git", work_, "--json"});
    host.waitForLine("\"scanning\"");
    const auto start = std::chrono::steady_clock::now();
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kLongestEnd);
}

TEST_F(GitHostTest, secondHostSaysSoBeforeItScans) {
    start();
    HostProcess second({CORVID_BIN_DIR "/corvid-host", "git", work_, "--json"});
    const std::string said = second.waitForLine("\"problem\"");
    EXPECT_THAT(said, StartsWith("{\"event\":\"problem\""));
    EXPECT_THAT(said, HasSubstr("another host application (process " +
                                std::to_string(host_->process()) + ")"));
    EXPECT_EQ(second.wait(), 1);
    HostProcess third({CORVID_BIN_DIR "/corvid-host", "git", work_, "--json"});
    EXPECT_THAT(third.waitForLine("no such line"), Not(HasSubstr("scanning")));
}

TEST_F(GitHostTest, mistakesAreSaidInWords) {
    const std::string nowhere = (top_ / "nowhere").string();
    HostProcess missing({CORVID_BIN_DIR "/corvid-host", "git", nowhere});
    EXPECT_THAT(missing.waitForLine("corvid-host:"), HasSubstr(nowhere));
    EXPECT_EQ(missing.wait(), 1);
    HostProcess wrong({CORVID_BIN_DIR "/corvid-host", "git"});
    EXPECT_THAT(wrong.waitForLine("DIR"), HasSubstr("required"));
    EXPECT_EQ(wrong.wait(), 2);
}

} // namespace
} // namespace corvid
