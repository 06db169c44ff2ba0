// What only the real file system can show: modes, links, the environment, a device that is full.

#include "Platform/Unix/UnixFileManager.h"

#include "Tests/Support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

namespace corvid {
namespace {

unsigned modeOf(const std::string& path) {
    struct stat status{};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

TEST(UnixFileManager, WhatItMakesIsForThisUserOnly) {
    const TemporaryFolder folder;
    UnixFileManager manager;
    std::error_code error;
    manager.createDirectoryAtPath(folder / "a/b");
    ASSERT_NE(manager.createFileAtPath(folder / "a/b/file", error), nullptr);
    EXPECT_EQ(modeOf(folder / "a"), 0700U);
    EXPECT_EQ(modeOf(folder / "a/b"), 0700U);
    EXPECT_EQ(modeOf(folder / "a/b/file"), 0600U);
}

TEST(UnixFileManager, ANewFileIsNeverMadeThroughALink) {
    const TemporaryFolder folder;
    UnixFileManager manager;
    std::error_code error;
    std::filesystem::create_symlink(folder / "elsewhere", folder / "link");
    EXPECT_EQ(manager.createFileAtPath(folder / "link", error), nullptr);
    EXPECT_EQ(error, std::errc::file_exists);
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

TEST(UnixFileManager, LinksAreNeitherListedNorFollowedWhenRemoved) {
    const TemporaryFolder folder;
    UnixFileManager manager;
    std::error_code error;
    std::ofstream(folder / "file") << "kept";
    std::filesystem::create_symlink(folder / "file", folder / "link");
    EXPECT_EQ(manager.regularFilesOfDirectoryAtPath(folder.path(), error).size(), 1U);
    EXPECT_FALSE(manager.removeItemAtPath(folder / "link"));
    EXPECT_EQ(std::filesystem::file_size(folder / "file"), 4U);
}

TEST(UnixFileManager, AFileIsDatedByWhenItWasMade) {
    const TemporaryFolder folder;
    UnixFileManager manager;
    std::error_code error;
    const auto before = std::chrono::system_clock::now() - std::chrono::seconds(1);
    const auto file = manager.createFileAtPath(folder / "file", error);
    const auto files = manager.regularFilesOfDirectoryAtPath(folder.path(), error);
    ASSERT_EQ(files.size(), 1U);
    EXPECT_GE(files[0].created, before);
    EXPECT_LE(files[0].created, std::chrono::system_clock::now());
}

/// Sets a variable, or unsets it, for the life of the object.
class Environment {
public:
    Environment(const char* name, const char* value) : name_(name) {
        if (const char* before = std::getenv(name)) {
            before_ = before;
        }
        set(value);
    }
    ~Environment() { set(before_.has_value() ? before_->c_str() : nullptr); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    void set(const char* value) { value != nullptr ? setenv(name_, value, 1) : unsetenv(name_); }
    const char* const name_;
    std::optional<std::string> before_;
};

TEST(UnixFileManager, TheLibraryIsInTheStateFolder) {
    const UnixFileManager manager;
    const struct {
        const char* state;
        const char* home;
        std::optional<std::string> library;
    } cases[] = {
        {"/state", "/home/me", "/state/corvid"},
        {nullptr, "/home/me", "/home/me/.local/state/corvid"},
        {"", "/home/me", "/home/me/.local/state/corvid"},
        {"relative", "/home/me", "/home/me/.local/state/corvid"},
    };
    for (const auto& one : cases) {
        const Environment state("XDG_STATE_HOME", one.state);
        const Environment home("HOME", one.home);
        EXPECT_EQ(manager.applicationLibraryDirectory(), one.library);
    }
}

TEST(UnixFileManager, WithoutAHomeInTheEnvironmentTheUserDatabaseHasIt) {
    const Environment state("XDG_STATE_HOME", nullptr);
    for (const char* value : {static_cast<const char*>(nullptr), "relative"}) {
        const Environment home("HOME", value);
        const auto library = UnixFileManager().applicationLibraryDirectory();
        ASSERT_TRUE(library.has_value());
        EXPECT_TRUE(library->starts_with('/') && library->ends_with("/.local/state/corvid"));
    }
}

} // namespace
} // namespace corvid
