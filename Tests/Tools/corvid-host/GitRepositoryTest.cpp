#include "Tools/corvid-host/Git/GitRepository.h"

#include "Tests/Tools/corvid-host/GitFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

namespace corvid {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class GitRepositoryTest : public GitFixture {};

TEST_F(GitRepositoryTest, stagesChangesDeletionsAndNewFiles) {
    write("changed", "a");
    write("deleted", "a");
    write("other", "a");
    commitAll();
    write("changed", "b");
    write("new", "b");
    write("other", "b");
    std::filesystem::remove(work_ + "/deleted");
    GitRepository(work_).stage({"changed", "deleted", "new"});
    EXPECT_EQ(git("status --porcelain"), "M  changed\nD  deleted\nA  new\n M other\n");
}

TEST_F(GitRepositoryTest, stagesTheRestWhenOneFileIsRefused) {
    write("a", "a");
    GitRepository repository(work_);
    EXPECT_THROW(repository.stage({".git/config", "a"}), GitError);
    EXPECT_EQ(git("status --porcelain"), "A  a\n");
}

TEST_F(GitRepositoryTest, gitStillSeesAChangeInTheSecondOfTheIndex) {
    using namespace std::chrono_literals;
    namespace fs = std::filesystem;
    // Else the time of the test's own changes would tell.
    git("config core.trustctime false");
    const fs::path index = fs::path(work_) / ".git/index";
    const std::map<std::string, std::function<void(GitRepository&)>> writers{
        {"stage", [](GitRepository& repository) { repository.stage({"other"}); }},
        {"unstage", [](GitRepository& repository) { repository.unstage({"other"}); }},
        {"mark", [](GitRepository& repository) { repository.setCheckedOut({"other"}, true); }},
    };
    for (const auto& [name, writeIndex] : writers) {
        write("other", name);
        write("racy", "x");
        write("same", "x");
        // All within a second: the files, the index, and a change of equal length.
        const auto second =
            std::chrono::floor<std::chrono::seconds>(fs::last_write_time(work_ + "/racy"));
        fs::last_write_time(work_ + "/racy", second + 100ms);
        fs::last_write_time(work_ + "/same", second + 100ms);
        commitAll();
        fs::last_write_time(index, second + 500ms);
        write("racy", "y");
        fs::last_write_time(work_ + "/racy", second + 700ms);
        ASSERT_EQ(git("--no-optional-locks status --porcelain"), " M racy\n") << name;
        GitRepository repository(work_);
        writeIndex(repository);
        EXPECT_THAT(git("status --porcelain"), HasSubstr(" M racy\n")) << name;
        EXPECT_THAT(git("status --porcelain"), Not(HasSubstr("same"))) << name;
        EXPECT_THAT(git("ls-files --debug same"), HasSubstr("size: 1")) << name;
    }
}

TEST_F(GitRepositoryTest, unstagesToHead) {
    write("changed", "a");
    write("deleted", "a");
    write("[cd]*", "a");
    commitAll();
    write("changed", "b");
    write("[cd]*", "b");
    write("new", "b");
    git("rm -q deleted");
    git("add -A");
    GitRepository repository(work_);
    // The name must not act as a pattern.
    repository.unstage({"[cd]*"});
    EXPECT_EQ(git("status --porcelain"), " M [cd]*\nM  changed\nD  deleted\nA  new\n");
    repository.unstage({"changed", "deleted", "new"});
    EXPECT_EQ(git("status --porcelain"), " M [cd]*\n M changed\n D deleted\n?? new\n");
}

TEST_F(GitRepositoryTest, unstagesBeforeTheFirstCommit) {
    write("a", "a");
    git("add a");
    GitRepository(work_).unstage({"a"});
    EXPECT_EQ(git("status --porcelain"), "?? a\n");
}

TEST_F(GitRepositoryTest, marksAndUnmarksAsGitDoes) {
    write("a", "a");
    write("b", "b");
    commitAll();
    GitRepository repository(work_);
    repository.setCheckedOut({"a"}, true);
    EXPECT_EQ(git("ls-files -v"), "h a\nH b\n");
    git("update-index --skip-worktree b");
    repository.reload();
    repository.setCheckedOut({"a", "b", "nowhere"}, false);
    EXPECT_EQ(git("ls-files -v"), "H a\nH b\n");
}

TEST_F(GitRepositoryTest, stagingSettlesAConflict) {
    makeConflict("x");
    write("x", "settled\n");
    GitRepository repository(work_);
    repository.stage({"x"});
    EXPECT_EQ(git("status --porcelain"), "M  x\n");
    repository.unstage({"x"});
    EXPECT_EQ(git("status --porcelain"), " M x\n");
}

TEST_F(GitRepositoryTest, showsTheDifferencesOfTheFilesOnly) {
    write("a", "one\n");
    write("b", "one\n");
    commitAll();
    write("a", "two\n");
    write("b", "two\n");
    const std::string diff = GitRepository(work_).changes({"a"});
    EXPECT_THAT(diff, HasSubstr("-one\n+two\n"));
    EXPECT_THAT(diff, HasSubstr("b/a"));
    EXPECT_THAT(diff, Not(HasSubstr("b/b")));
}

TEST_F(GitRepositoryTest, lockedIndexIsSaidWithTheRemedy) {
    write("a", "a");
    write(".git/index.lock", "");
    GitRepository repository(work_);
    try {
        repository.stage({"a"});
        FAIL() << "the lock of another git was ignored";
    } catch (const GitError& error) {
        EXPECT_THAT(error.what(), HasSubstr("index.lock"));
        EXPECT_THAT(error.what(), HasSubstr("try again"));
    }
}

} // namespace
} // namespace corvid
