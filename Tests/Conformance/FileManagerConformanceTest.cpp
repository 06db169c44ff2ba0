// What every FileManager must do: the system's and the one in memory.

#include "Platform/Fake/FakeClock.h"
#include "Platform/Fake/FakeFileManager.h"
#include "Platform/Unix/UnixFileManager.h"
#include "Tests/Support/TemporaryFolder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace corvid {
namespace {

using testing::HasSubstr;

struct RealFiles {
    TemporaryFolder folder;
    UnixFileManager manager;
    const std::string& root() const { return folder.path(); }
};

struct FakeFiles {
    CallLog calls;
    FakeClock clock;
    FakeFileManager manager{calls, clock};
    std::string root() const { return "/home/me"; }
};

template <class Files>
class FileManagerConformance : public testing::Test {
protected:
    Files files;
    FileManager& manager = files.manager;
    std::error_code error;

    std::string at(const std::string& name) const { return files.root() + "/" + name; }

    std::vector<std::string> names(const std::string& folder) {
        std::vector<std::string> names;
        for (const FileManager::RegularFile& file :
             manager.regularFilesOfDirectoryAtPath(folder, error)) {
            names.push_back(file.name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    std::uint64_t sizeOf(const std::string& name) {
        for (const FileManager::RegularFile& file :
             manager.regularFilesOfDirectoryAtPath(files.root(), error)) {
            if (file.name == name) {
                return file.size;
            }
        }
        ADD_FAILURE() << "no file " << name;
        return 0;
    }
};

using Implementations = testing::Types<RealFiles, FakeFiles>;
TYPED_TEST_SUITE(FileManagerConformance, Implementations);

TYPED_TEST(FileManagerConformance, TellsFoldersFromFilesFromNothing) {
    ASSERT_NE(this->manager.createFileAtPath(this->at("file"), this->error), nullptr);
    EXPECT_TRUE(this->manager.fileExistsAtPath(this->files.root()).isDirectory);
    EXPECT_TRUE(this->manager.fileExistsAtPath(this->files.root() + "/").isDirectory);
    EXPECT_TRUE(this->manager.fileExistsAtPath(this->at("file")).exists);
    EXPECT_FALSE(this->manager.fileExistsAtPath(this->at("file")).isDirectory);
    EXPECT_FALSE(this->manager.fileExistsAtPath(this->at("none")).exists);
}

TYPED_TEST(FileManagerConformance, MakesAFolderAndThoseAboveIt) {
    EXPECT_EQ(this->manager.createDirectoryAtPath(this->at("a/b/c")), std::nullopt);
    EXPECT_TRUE(this->manager.fileExistsAtPath(this->at("a/b/c")).isDirectory);
    EXPECT_EQ(this->manager.createDirectoryAtPath(this->at("a/b/c")), std::nullopt);
    EXPECT_EQ(this->manager.createDirectoryAtPath(this->at("a/d/")), std::nullopt);
    EXPECT_TRUE(this->manager.fileExistsAtPath(this->at("a/d")).isDirectory);
}

TYPED_TEST(FileManagerConformance, SaysWhichPartOfAFolderCannotBeMade) {
    ASSERT_NE(this->manager.createFileAtPath(this->at("file"), this->error), nullptr);
    const auto failure = this->manager.createDirectoryAtPath(this->at("file/below"));
    ASSERT_TRUE(failure.has_value());
    EXPECT_THAT(*failure, HasSubstr("\"" + this->at("file")));
    EXPECT_TRUE(this->manager.createDirectoryAtPath(this->at("file")).has_value());
}

TYPED_TEST(FileManagerConformance, MakesOnlyFilesThatWereNotThere) {
    ASSERT_NE(this->manager.createFileAtPath(this->at("a"), this->error), nullptr);
    EXPECT_FALSE(this->error);
    EXPECT_EQ(this->manager.createFileAtPath(this->at("a"), this->error), nullptr);
    EXPECT_EQ(this->error, std::errc::file_exists);
    EXPECT_EQ(this->manager.createFileAtPath(this->at("none/a"), this->error), nullptr);
    EXPECT_EQ(this->error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(this->manager.createFileAtPath(this->at("a/b"), this->error), nullptr);
    EXPECT_EQ(this->error, std::errc::not_a_directory);
    EXPECT_NE(this->manager.createFileAtPath(this->at("b"), this->error), nullptr);
    EXPECT_FALSE(this->error);
}

TYPED_TEST(FileManagerConformance, AFileGrowsAndIsCutBack) {
    const auto file = this->manager.createFileAtPath(this->at("a"), this->error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->append("12345").bytes, 5U);
    EXPECT_EQ(file->append("").bytes, 0U);
    EXPECT_FALSE(file->append("678").error);
    EXPECT_EQ(this->sizeOf("a"), 8U);
    EXPECT_FALSE(file->truncate(2));
    EXPECT_EQ(file->append("3").bytes, 1U);
    EXPECT_EQ(this->sizeOf("a"), 3U);
}

TYPED_TEST(FileManagerConformance, AFileKnowsWhetherItsPathStillNamesIt) {
    const auto file = this->manager.createFileAtPath(this->at("a"), this->error);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->isAtPath(this->at("a")));
    EXPECT_FALSE(file->isAtPath(this->at("b")));
    EXPECT_FALSE(this->manager.removeItemAtPath(this->at("a")));
    EXPECT_FALSE(file->isAtPath(this->at("a")));
    EXPECT_EQ(file->append("still works").bytes, 11U);
    const auto other = this->manager.createFileAtPath(this->at("a"), this->error);
    EXPECT_FALSE(file->isAtPath(this->at("a")));
    EXPECT_TRUE(other->isAtPath(this->at("a")));
}

TYPED_TEST(FileManagerConformance, ListsTheFilesOfOneFolder) {
    EXPECT_EQ(this->names(this->files.root()), std::vector<std::string>());
    EXPECT_FALSE(this->error);
    this->manager.createDirectoryAtPath(this->at("folder"));
    ASSERT_NE(this->manager.createFileAtPath(this->at("b"), this->error), nullptr);
    ASSERT_NE(this->manager.createFileAtPath(this->at("a"), this->error), nullptr);
    ASSERT_NE(this->manager.createFileAtPath(this->at("folder/c"), this->error), nullptr);
    EXPECT_EQ(this->names(this->files.root()), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(this->names(this->at("none")), std::vector<std::string>());
    EXPECT_EQ(this->error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(this->names(this->at("a")), std::vector<std::string>());
    EXPECT_EQ(this->error, std::errc::not_a_directory);
}

TYPED_TEST(FileManagerConformance, RemovesFilesOnly) {
    this->manager.createDirectoryAtPath(this->at("folder"));
    EXPECT_TRUE(this->manager.removeItemAtPath(this->at("folder")));
    EXPECT_TRUE(this->manager.fileExistsAtPath(this->at("folder")).isDirectory);
    EXPECT_EQ(this->manager.removeItemAtPath(this->at("none")),
              std::errc::no_such_file_or_directory);
}

TYPED_TEST(FileManagerConformance, TheLibraryIsAnAbsolutePath) {
    const auto library = this->manager.applicationLibraryDirectory();
    ASSERT_TRUE(library.has_value());
    EXPECT_TRUE(library->starts_with('/'));
    EXPECT_FALSE(library->ends_with('/'));
}

} // namespace
} // namespace corvid
