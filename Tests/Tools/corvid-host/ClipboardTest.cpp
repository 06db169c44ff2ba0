#include "Tools/corvid-host/Clipboard.h"

#include "Tools/corvid-host/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace corvid {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ClipboardTest : public ::testing::Test {
protected:
    ClipboardTest() {
        std::string name = (fs::temp_directory_path() / "corvid-clip-XXXXXX").string();
        top_ = mkdtemp(name.data());
    }
    ~ClipboardTest() override { fs::remove_all(top_); }

    std::string program(const std::string& name, const std::string& script) const {
        const fs::path path = top_ / name;
        std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
        fs::permissions(path, fs::perms::owner_all);
        return path.string();
    }

    Session session(std::map<std::string, std::string> environment) const {
        environment["PATH"] = "relative:" + top_.string() + ":/nowhere";
        return {[environment](const char* name) {
                    const auto found = environment.find(name);
                    return found != environment.end() ? found->second : std::string();
                },
                (top_ / "terminal").string()};
    }

    fs::path top_;
};

TEST_F(ClipboardTest, desktopDecidesWhichProgramIsAsked) {
    const Session wayland = session({{"WAYLAND_DISPLAY", "w"}, {"DISPLAY", ":0"}});
    const Session x11 = session({{"DISPLAY", ":0"}});
    EXPECT_EQ(clipboardCommand(x11), std::nullopt);
    const std::string xsel = program("xsel", "");
    EXPECT_THAT(clipboardCommand(x11).value(), ElementsAre(xsel, "--clipboard", "--input"));
    const std::string xclip = program("xclip", "");
    EXPECT_THAT(clipboardCommand(x11).value(), ElementsAre(xclip, "-selection", "clipboard"));
    EXPECT_THAT(clipboardCommand(wayland).value(), ElementsAre(xclip, "-selection", "clipboard"));
    const std::string wlCopy = program("wl-copy", "");
    EXPECT_THAT(clipboardCommand(wayland).value(), ElementsAre(wlCopy));
    EXPECT_EQ(clipboardCommand(session({})), std::nullopt);
}

TEST_F(ClipboardTest, sequenceForTerminals) {
    // The test vectors of RFC 4648, section 10.
    const std::pair<const char*, const char*> rows[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"}};
    for (const auto& [text, encoded] : rows) {
        EXPECT_EQ(terminalClipboardSequence(text), "\033]52;c;" + std::string(encoded) + "\a");
    }
}

TEST_F(ClipboardTest, terminalIsAskedWithoutADesktop) {
    std::ofstream(top_ / "terminal").close();
    EXPECT_EQ(copyToClipboard("foo", session({})), std::nullopt);
    std::string written;
    std::getline(std::ifstream(top_ / "terminal"), written, '\0');
    EXPECT_EQ(written, "\033]52;c;Zm9v\a");
}

TEST_F(ClipboardTest, missingClipboardIsSaidWithTheRemedy) {
    EXPECT_THAT(copyToClipboard("foo", session({})).value(), HasSubstr("install wl-clipboard"));
}

TEST_F(ClipboardTest, programGetsAllOfALongText) {
    const std::string out = (top_ / "out").string();
    const std::string text(1 << 20, 'x');
    EXPECT_EQ(runCommand({program("cat", "exec cat >'" + out + "'")}, text), std::nullopt);
    EXPECT_EQ(fs::file_size(out), text.size());
}

TEST_F(ClipboardTest, programThatFailsIsNamed) {
    const std::string deaf = program("deaf", "exit 7");
    EXPECT_THAT(runCommand({deaf}, std::string(1 << 20, 'x')).value(),
                HasSubstr(deaf + " failed with status 7"));
    EXPECT_THAT(runCommand({deaf + "-not"}, "").value(), HasSubstr("was not started"));
}

TEST_F(ClipboardTest, programThatHangsIsKilledWithItsChildren) {
    const std::string note = (top_ / "note").string();
    ASSERT_EQ(mkfifo(note.c_str(), 0600), 0);
    const int reader = open(note.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    // Both hold the note open for as long as they live, and neither reads its input.
    const std::string hung =
        program("hung", "exec 3>'" + note + "'\nsleep 1000 &\necho x >&3\nwait");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(
        runCommand({hung}, std::string(1 << 20, 'x'), std::chrono::milliseconds(300)).value(),
        HasSubstr(hung + " did not end within 300 ms and was killed"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    // The end of the note is read when nobody has it open for writing.
    pollfd source{reader, POLLIN, 0};
    char text = 0;
    ssize_t count = 0;
    do {
        poll(&source, 1, 10'000);
        count = read(reader, &text, 1);
    } while (count > 0);
    EXPECT_EQ(count, 0);
    close(reader);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was not reaped";
}

TEST_F(ClipboardTest, terminalThatIsStoppedIsSaid) {
    const int controller = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(controller, 0);
    ASSERT_EQ(grantpt(controller), 0);
    ASSERT_EQ(unlockpt(controller), 0);
    Session here = session({});
    here.terminal = ptsname(controller);
    const int terminal = open(here.terminal.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(tcflow(terminal, TCOOFF), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(copyToClipboard(std::string(1 << 20, 'x'), here).value(), HasSubstr("Ctrl-S"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    close(terminal);
    close(controller);
}

TEST_F(ClipboardTest, noMoreViewersThanAnybodyHasWindows) {
    const std::string viewer = program("viewer", "exec sleep 1000");
    {
        BackgroundPrograms programs;
        for (std::size_t i = 0; i < BackgroundPrograms::kMost; ++i) {
            ASSERT_EQ(programs.start({viewer}), std::nullopt) << i;
        }
        EXPECT_THAT(programs.start({viewer}).value(), HasSubstr("close some of them"));
    }
    std::ifstream children("/proc/self/task/" + std::to_string(gettid()) + "/children");
    for (pid_t child = 0; children >> child;) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

} // namespace
} // namespace corvid
