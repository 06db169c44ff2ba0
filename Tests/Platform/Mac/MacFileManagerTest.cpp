#include "Platform/Mac/MacFileManager.h"

#include "Tests/Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace corvid {
namespace {

using testing::HasSubstr;

class MacFileManagerTest : public testing::Test {
protected:
    TemporaryFolder folder;
    MacFileManager manager;
};

TEST_F(MacFileManagerTest, TellsFoldersFromFilesFromNothing) {
    std::ofstream(folder / "file") << "x";
    std::filesystem::create_symlink("file", folder / "link");
    EXPECT_TRUE(manager.fileExistsAtPath(folder.path()).isDirectory);
    EXPECT_TRUE(manager.fileExistsAtPath(folder / "file").exists);
    EXPECT_FALSE(manager.fileExistsAtPath(folder / "file").isDirectory);
    EXPECT_TRUE(manager.fileExistsAtPath(folder / "link").exists);
    EXPECT_FALSE(manager.fileExistsAtPath(folder / "missing").exists);
    EXPECT_FALSE(manager.fileExistsAtPath(folder / "missing").isDirectory);
}

TEST_F(MacFileManagerTest, MakesFoldersForThisUserOnly) {
    EXPECT_EQ(manager.createDirectoryAtPath(folder / "a/b ü/c"), std::nullopt);
    for (const char* name : {"a", "a/b ü", "a/b ü/c"}) {
        struct stat status{};
        ASSERT_EQ(stat((folder / name).c_str(), &status), 0) << name;
        EXPECT_TRUE(S_ISDIR(status.st_mode)) << name;
    }
    struct stat status{};
    stat((folder / "a/b ü/c").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    EXPECT_EQ(manager.createDirectoryAtPath(folder / "a"), std::nullopt);
}

TEST_F(MacFileManagerTest, SaysWhyAFolderCannotBe) {
    std::ofstream(folder / "file") << "x";
    const auto reason = manager.createDirectoryAtPath(folder / "file/below");
    ASSERT_TRUE(reason);
    EXPECT_THAT(*reason, HasSubstr(folder / "file/below"));
}

TEST_F(MacFileManagerTest, ListsRegularFilesOnly) {
    std::ofstream(folder / "file") << "four";
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_directory(folder / "folder");
    std::error_code error;
    const auto files = manager.regularFilesOfDirectoryAtPath(folder.path(), error);
    EXPECT_FALSE(error);
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].name, "file");
    EXPECT_EQ(files[0].size, 4U);
    const auto age = std::chrono::system_clock::now() - files[0].created;
    EXPECT_LT(age, std::chrono::hours(1));
    EXPECT_GT(age, -std::chrono::hours(1));

    EXPECT_TRUE(manager.regularFilesOfDirectoryAtPath(folder / "missing", error).empty());
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
}

TEST_F(MacFileManagerTest, RemovesAFileAndALink) {
    std::ofstream(folder / "file") << "x";
    std::filesystem::create_symlink("file", folder / "link");
    EXPECT_FALSE(manager.removeItemAtPath(folder / "link"));
    EXPECT_TRUE(manager.fileExistsAtPath(folder / "file").exists);
    EXPECT_FALSE(manager.removeItemAtPath(folder / "file"));
    EXPECT_EQ(manager.removeItemAtPath(folder / "file"), std::errc::no_such_file_or_directory);
}

TEST_F(MacFileManagerTest, MakesAFileThatWasNotThere) {
    std::error_code error;
    const auto file = manager.createFileAtPath(folder / "log", error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->append("line\n").bytes, 5U);
    EXPECT_EQ(manager.createFileAtPath(folder / "log", error), nullptr);
    EXPECT_EQ(error, std::errc::file_exists);
}

TEST_F(MacFileManagerTest, KnowsTheLibraryFolder) {
    const auto library = manager.applicationLibraryDirectory();
    ASSERT_TRUE(library);
    EXPECT_EQ(library->front(), '/');
    EXPECT_THAT(*library, HasSubstr("Library"));
}

} // namespace
} // namespace corvid
