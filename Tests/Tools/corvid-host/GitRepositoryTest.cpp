#include "Tools/corvid-host/Git/GitRepository.h"

#include "Tests/Tools/corvid-host/GitFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

std::string reasonOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const GitError& error) {
        return error.what();
    }
    return "(none)";
}

// A pipe that nobody writes to, wherever libgit2 opens a file: none is waited for.
TEST_F(GitRepositoryTest, pipesInPlaceOfFilesAreRefused) {
    write("a", "a");
    write("b", "b");
    commitAll();
    write("dir/c", "c");
    for (const char* name : {"/.gitattributes", "/dir/.gitignore", "/.git/info/attributes"}) {
        ASSERT_EQ(mkfifo((work_ + name).c_str(), 0600), 0);
    }
    std::filesystem::remove(work_ + "/a");
    ASSERT_EQ(mkfifo((work_ + "/a").c_str(), 0600), 0);
    GitRepository repository(work_);
    EXPECT_THAT(reasonOf([&] { repository.stage({"a", "dir/c"}); }),
                HasSubstr("a cannot be staged"));
    EXPECT_EQ(git("ls-files"), "a\nb\ndir/c\n"); // git status would wait for a pipe
    EXPECT_THAT(repository.changes({"dir/c"}), HasSubstr("+c"));
    write("b", "2");
    repository.changes({"a", "b"});
    for (const char* name : {"/.git/index", "/.git/HEAD", "/.git/config"}) {
        std::filesystem::rename(work_ + name, work_ + "/kept");
        ASSERT_EQ(mkfifo((work_ + name).c_str(), 0600), 0);
        EXPECT_NE(reasonOf([&] { GitRepository other(work_); }), "(none)") << name;
        std::filesystem::rename(work_ + "/kept", work_ + name);
    }
}

// Between the look at a file and the moment it is read, it becomes a pipe.
TEST_F(GitRepositoryTest, fileThatBecomesAPipeIsNotWaitedFor) {
    write("a", "a");
    commitAll();
    struct stat item{};
    const std::string path = work_ + "/a";
    ASSERT_EQ(lstat(path.c_str(), &item), 0);
    item.st_mtim.tv_sec += 1;
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    GitRepository repository(work_);
    EXPECT_TRUE(
        repository.stateOf({"a", item, AT_FDCWD, path.c_str(), false, true}).state.isChanged);
}

TEST_F(GitRepositoryTest, workTreeOutsideTheFolderAskedForIsRefused) {
    const std::string home = (top_ / "home").string();
    std::filesystem::create_directories(home + "/sub");
    std::filesystem::create_directories(work_ + "/in");
    git("config core.worktree " + home);
    EXPECT_THAT(reasonOf([&] { GitRepository repository(work_); }), HasSubstr("core.worktree"));
    // Above the folder asked for, but not found from there.
    git("config core.worktree " + top_.string());
    EXPECT_THAT(reasonOf([&] { GitRepository repository(work_); }), HasSubstr(top_.string()));
    git("config core.worktree " + work_ + "/in");
    EXPECT_EQ(GitRepository(work_).workTree(), work_ + "/in");
    git("config core.worktree " + work_);
    EXPECT_EQ(GitRepository(work_ + "/in").workTree(), work_);
    git("config --unset core.worktree");
    write("x", "x");
    commitAll();
    git("worktree add -q ../linked -b linked");
    EXPECT_EQ(GitRepository((top_ / "linked").string()).workTree(), (top_ / "linked").string());
}

TEST_F(GitRepositoryTest, repositoryOfAnotherUserIsRefusedWithTheRemedy) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    git("config -f ../.gitconfig user.name Tester");
    for (const std::string& path : {work_, work_ + "/.git"}) {
        ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0);
    }
    const std::string reason = reasonOf([&] { GitRepository repository(work_); });
    EXPECT_EQ(reason, work_ +
                          " belongs to another user (number 12345), whose settings of git are "
                          "not trusted; if you trust them, run: git config --global --add "
                          "safe.directory " +
                          work_);
    git("config --global --add safe.directory " + work_);
    EXPECT_EQ(GitRepository(work_).workTree(), work_);
}

} // namespace
} // namespace corvid
