// Real disks that fail: full, read-only, without permission, a file in the folder's place.

#include "App/Reporting/LogFileWriter.h"
#include "Tests/Support/RealPlatform.h"
#include "Tests/Support/SmallDisk.h"
#include "Tests/Support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class OneName final : public CVDDLogFileManagerDefault {
public:
    explicit OneName(const std::string& folder) : CVDDLogFileManagerDefault(folder) {}
    std::optional<std::string> newLogFileName() const override { return "one.log"; }
    bool isLogFile(std::optional<std::string_view> name) const override {
        return name->starts_with("one");
    }

protected:
    bool mayDelete(std::string_view name) const override { return isLogFile(name); }
};

/// An ordinary user for the life of the object, when the tests are run by root, whom no mode stops.
class OrdinaryUser {
public:
    OrdinaryUser() {
        if (before_ == 0) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~OrdinaryUser() {
        if (before_ == 0) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    const uid_t before_ = geteuid();
};

class LogDisk : public testing::Test {
protected:
    RealPlatform system;
    TemporaryFolder folder;
    std::string logs = folder / "logs";
    std::unique_ptr<LogFileWriter> writer = makeWriter(logs);

    static std::unique_ptr<LogFileWriter> makeWriter(const std::string& path) {
        return std::make_unique<LogFileWriter>(std::make_shared<OneName>(path));
    }
    void write(std::string_view lines) {
        while (!lines.empty()) {
            lines.remove_prefix(writer->writeSome(lines));
        }
    }
    std::string contents(const std::string& name) {
        std::ifstream in(logs + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

#define REQUIRE_SMALL_DISK(disk)                                                                   \
    if (!(disk).isMounted()) {                                                                     \
        GTEST_SKIP() << "a file system cannot be mounted here: " << (disk).reason();               \
    }

TEST_F(LogDisk, AFullOneCostsLinesWhileItIsFull) {
    const SmallDisk disk(logs);
    REQUIRE_SMALL_DISK(disk)
    std::ofstream(logs + "/ballast") << std::string(32 * 1024, 'x');
    const std::string line = std::string(99, 'x') + "\n";
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += line;
    }
    write(lines);
    const std::string before = contents("one.log");
    ASSERT_THAT(before, EndsWith("\n"));
    ASSERT_EQ(before.size() % line.size(), 0U);
    ASSERT_LT(before.size(), lines.size());
    write("lost\n");
    EXPECT_EQ(contents("one.log"), before);

    std::filesystem::remove(logs + "/ballast");
    write("after\n");
    const auto lost = (lines.size() - before.size()) / line.size() + 1;
    EXPECT_THAT(contents("one.log"),
                EndsWith("File logger: " + std::to_string(lost) +
                         " lines could not be written: No space left on device\nafter\n"));
}

TEST_F(LogDisk, AReadOnlyOneCostsLinesWhileItIs) {
    SmallDisk disk(logs);
    REQUIRE_SMALL_DISK(disk)
    disk.setReadOnly(true);
    writer->open();
    write("lost\n");
    disk.setReadOnly(false);
    write("after\n");
    EXPECT_THAT(contents("one.log"),
                EndsWith("1 line could not be written: Read-only file system\nafter\n"));
}

TEST_F(LogDisk, AFolderWithoutPermissionCostsLinesWhileItLacksIt) {
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    const OrdinaryUser user;
    write("before\n");
    ASSERT_EQ(chmod(logs.c_str(), 0500), 0);
    writer->setMaximumFileSize(1);
    write("lost\n");
    EXPECT_EQ(contents("one.log"), "before\n");
    writer->setMaximumFileSize(0);
    write("after\n");
    EXPECT_THAT(contents("one.log"),
                EndsWith("1 line could not be written: Permission denied\nafter\n"));
    ASSERT_EQ(chmod(logs.c_str(), 0700), 0);
}

TEST_F(LogDisk, AFileInThePlaceOfTheFolderCostsLinesWhileItIsThere) {
    std::ofstream(logs) << "in the way";
    write("lost\n");
    std::filesystem::remove(logs);
    write("after\n");
    EXPECT_THAT(contents("one.log"), HasSubstr("1 line could not be written: Not a directory\n"));
    EXPECT_THAT(contents("one.log"), EndsWith("after\n"));
}

TEST_F(LogDisk, AFolderThatIsRemovedIsMadeAgainForThisUserOnly) {
    write("before\n");
    std::filesystem::remove_all(logs);
    write("after\n");
    EXPECT_EQ(contents("one_2.log"), "after\n");
    struct stat status{};
    ASSERT_EQ(stat(logs.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(LogDisk, ALinkInThePlaceOfTheFileIsNotFollowed) {
    std::filesystem::create_directory(logs);
    std::filesystem::create_symlink(folder / "elsewhere", logs + "/one.log");
    write("line\n");
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
    EXPECT_EQ(contents("one_2.log"), "line\n");
}

} // namespace
} // namespace corvid
