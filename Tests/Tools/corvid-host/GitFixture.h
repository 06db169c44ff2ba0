#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace corvid {

/// A new git repository in a folder of its own, made by git itself, which is asked again what it
/// thinks. The tests are skipped where there is no git.
class GitFixture : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::system("git --version >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "git is not installed";
        }
        std::string name = (std::filesystem::temp_directory_path() / "corvid-git-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        top_ = std::filesystem::canonical(name);
        // The settings of whoever runs the tests must not matter.
        setenv("HOME", top_.c_str(), 1);
        setenv("XDG_CONFIG_HOME", top_.c_str(), 1);
        setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
        work_ = (top_ / "work").string();
        std::filesystem::create_directory(work_);
        git("init -q -b main");
        git("config user.name Tester");
        git("config user.email tester@example.org");
    }

    void TearDown() override {
        if (!top_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(top_, ignored);
        }
    }

    /// Runs git in the work tree and returns what it says.
    std::string git(const std::string& arguments) const {
        const std::string command = "cd '" + work_ + "' && git " + arguments + " 2>&1";
        std::FILE* pipe = popen(command.c_str(), "r");
        std::string output;
        std::array<char, 4096> buffer{};
        while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe)) {
            output.append(buffer.data(), count);
        }
        pclose(pipe);
        return output;
    }

    /// Writes a file of the work tree, with the folders above it. The times of two writes differ by
    /// a second at least, and are past: git compares seconds, and misses a change of equal length
    /// when a second ends between it and the next write of the index.
    void write(const std::string& path, const std::string& text) const {
        const std::filesystem::path file = std::filesystem::path(work_) / path;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        std::filesystem::last_write_time(file, writeTime_ += std::chrono::seconds(1));
    }

    void commitAll() const {
        git("add -A");
        git("commit -q -m x");
    }

    /// Leaves the new file `name` in conflict.
    void makeConflict(const std::string& name) const {
        write(name, "base\n");
        commitAll();
        git("checkout -q -b other");
        write(name, "theirs\n");
        commitAll();
        git("checkout -q main");
        write(name, "ours\n");
        commitAll();
        git("merge other");
    }

    std::filesystem::path top_;
    std::string work_;
    mutable std::filesystem::file_time_type writeTime_ =
        std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
};

} // namespace corvid
