#include "Tools/corvid-host/Git/TreeScanner.h"

#include "Platform/Unix/OwnedFd.h"
#include "Tests/Tools/corvid-host/GitFixture.h"
#include "Tools/corvid-host/Git/BadgeTree.h"
#include "Tools/corvid-host/Git/GitRepository.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid {
namespace {

namespace fs = std::filesystem;

class TreeScannerTest : public GitFixture {
protected:
    BadgeTree scanAll(GitRepository& repository) {
        TreeScanner scanner(repository, User::current(),
                            [this](const std::string& folder, int) { visited_.insert(folder); });
        BadgeTree tree;
        tree.replace("", scanner.scan(""));
        return tree;
    }

    std::string badge(const std::string& path) {
        GitRepository repository(work_);
        return std::string(scanAll(repository).badge(path).rawValue());
    }

    /// What git itself says of every file on disk, as badges.
    std::map<std::string, std::string> gitBadges() const {
        std::map<std::string, std::string> badges;
        std::set<std::string> marked;
        std::istringstream known(git("ls-files -v -z"));
        for (std::string line; std::getline(known, line, '\0');) {
            badges[line.substr(2)] = "synced";
            if (std::islower(static_cast<unsigned char>(line[0])) || line[0] == 'S') {
                badges[line.substr(2)] = "checkedOut";
            }
        }
        std::istringstream status(
            git("status --porcelain=v1 -z --ignored --untracked-files=all --no-renames"));
        for (std::string line; std::getline(status, line, '\0');) {
            const std::string code = line.substr(0, 2);
            const std::string path = line.substr(3);
            if (code == "??" || code == "!!") {
                // What is staged as deleted comes first, and again as untracked or ignored.
                badges.try_emplace(path, code == "??" ? "cloud" : "none");
            } else if (code == "DD" || code == "AU" || code == "UD" || code == "UA" ||
                       code == "DU" || code == "AA" || code == "UU") {
                badges[path] = "error";
            } else if (code[1] != ' ') {
                badges[path] = "inProgress";
            } else {
                badges[path] = "finishedTransfer";
            }
        }
        for (auto next = badges.begin(); next != badges.end();) {
            const bool isThere = fs::symlink_status(fs::path(work_) / next->first).type() !=
                                 fs::file_type::not_found;
            next = isThere && next->first.back() != '/' ? std::next(next) : badges.erase(next);
        }
        return badges;
    }

    std::set<std::string> visited_;
};

TEST_F(TreeScannerTest, aFileAsOldAsTheIndexIsKnownByItsContent) {
    write("a", "x");
    commitAll();
    const fs::path file = fs::path(work_) / "a";
    const auto time = fs::last_write_time(file);
    fs::last_write_time(fs::path(work_) / ".git/index", time);
    EXPECT_EQ(badge("a"), "synced");
    write("a", "y");
    fs::last_write_time(file, time);
    EXPECT_EQ(badge("a"), "inProgress");
}

TEST_F(TreeScannerTest, everyStateHasItsBadge) {
    for (const char* name : {"synced", "changed", "staged", "both", "assumed", "skipped", "closed",
                             "removed", "mode", "folder/deleted", "folder/kept"}) {
        write(name, name);
    }
    write(".gitignore", "*.o\nbuild/\n");
    commitAll();
    write("changed", "other");
    write("staged", "other");
    git("add staged");
    write("both", "one");
    git("add both");
    write("both", "two");
    git("update-index --assume-unchanged assumed");
    write("assumed", "changed behind git's back");
    git("update-index --skip-worktree skipped");
    git("rm -q --cached removed");
    write("new", "");
    write("x.o", "");
    write("build/y", "");
    fs::create_symlink("nowhere", fs::path(work_) / "link");
    fs::create_directories(fs::path(work_) / "empty");
    fs::permissions(fs::path(work_) / "mode", fs::perms::owner_exec, fs::perm_options::add);
    fs::permissions(fs::path(work_) / "closed", fs::perms::none);
    fs::remove(fs::path(work_) / "folder/deleted");

    const std::pair<const char*, const char*> rows[] = {
        {"synced", "synced"},
        {"changed", "inProgress"},
        {"both", "inProgress"},
        {"staged", "finishedTransfer"},
        {"assumed", "checkedOut"},
        {"skipped", "checkedOut"},
        {"closed", "accessDenied"},
        {"removed", "finishedTransfer"},
        {"new", "cloud"},
        {"link", "cloud"},
        {"x.o", "none"},
        {"build", "none"},
        {"build/y", "none"},
        {"empty", "none"},
        {"mode", "inProgress"},
        {"folder", "syncedpartial"},
        {"folder/kept", "synced"},
        {".git", "none"},
    };
    GitRepository repository(work_);
    const BadgeTree tree = scanAll(repository);
    for (const auto& [path, expected] : rows) {
        EXPECT_EQ(tree.badge(path).rawValue(), expected) << path;
    }
    EXPECT_EQ(visited_, (std::set<std::string>{"", "empty", "folder"}));
}

TEST_F(TreeScannerTest, conflictIsAnError) {
    makeConflict("x");
    EXPECT_EQ(badge("x"), "error");
    git("add x");
    EXPECT_EQ(badge("x"), "finishedTransfer");
}

TEST_F(TreeScannerTest, repositoryWithoutACommit) {
    write("a", "a");
    write("b", "b");
    git("add a");
    EXPECT_EQ(badge("a"), "finishedTransfer");
    EXPECT_EQ(badge("b"), "cloud");
}

TEST_F(TreeScannerTest, trackedFileInAnIgnoredFolderIsFound) {
    write(".gitignore", "build/\n");
    write("build/kept", "x");
    write("build/other", "x");
    git("add -f build/kept .gitignore");
    git("commit -q -m x");
    EXPECT_EQ(badge("build/kept"), "synced");
    EXPECT_EQ(badge("build/other"), "none");
    EXPECT_EQ(badge("build"), "synced");
}

TEST_F(TreeScannerTest, closedFolderIsNotEntered) {
    write("closed/x", "x");
    write("open/x", "x");
    commitAll();
    fs::permissions(fs::path(work_) / "closed", fs::perms::none);
    EXPECT_EQ(badge("closed"), "accessDenied");
    EXPECT_EQ(badge("open"), "synced");
    EXPECT_FALSE(visited_.contains("closed"));
    fs::permissions(fs::path(work_) / "closed", fs::perms::owner_all);
}

TEST_F(TreeScannerTest, nestedRepositoryIsOneItem) {
    write("nested/x", "x");
    git("init -q nested");
    write("a", "a");
    git("add a");
    git("commit -q -m x");
    EXPECT_EQ(badge("nested"), "cloud");
    EXPECT_EQ(badge("nested/x"), "none");
}

TEST_F(TreeScannerTest, fileInTheWayOfATrackedFolder) {
    write("x/y", "y");
    write("z", "z");
    commitAll();
    fs::remove_all(fs::path(work_) / "x");
    write("x", "a file now");
    fs::remove(fs::path(work_) / "z");
    write("z/inside", "a folder now");
    EXPECT_EQ(badge("x"), "cloud");
    EXPECT_EQ(badge("z/inside"), "cloud");

    GitRepository repository(work_);
    TreeScanner scanner(repository, User::current(), [](const std::string&, int) {});
    EXPECT_TRUE(scanner.scan("x/y").isEmpty());
    EXPECT_TRUE(scanner.scan("nowhere").isEmpty());
}

TEST_F(TreeScannerTest, namesOfAnyBytes) {
    const std::string names[] = {"a b", "ümlaut", "\xff\xfe", "new\nline", "[glob]*", "-dash"};
    for (const std::string& name : names) {
        write(name, "x");
    }
    commitAll();
    GitRepository repository(work_);
    const BadgeTree tree = scanAll(repository);
    for (const std::string& name : names) {
        EXPECT_EQ(tree.badge(name).rawValue(), "synced") << name;
    }
}

// Files of every state at random, judged by git and by the scanner.
TEST_F(TreeScannerTest, agreesWithGit) {
    std::mt19937 random(11);
    const auto any = [&](const auto& list) { return list[random() % std::size(list)]; };
    const std::string folders[] = {"", "a/", "a/b/", "c/", "ignored/", "c/ignored/"};
    write(".gitignore", "ignored/\n*.log\n");
    std::vector<std::string> files;
    for (int i = 0; i < 60; ++i) {
        files.push_back(any(folders) + "f" + std::to_string(i) + (i % 9 == 0 ? ".log" : ""));
        write(files.back(), "first");
        if (i % 4 != 0) {
            git("add -f '" + files.back() + "'");
        }
    }
    git("commit -q -m x");
    for (int round = 0; round < 6; ++round) {
        for (int step = 0; step < 12; ++step) {
            const std::string file = any(files);
            switch (random() % 8) {
            case 0:
                write(file, "text " + std::to_string(random() % 3));
                break;
            case 1:
                git("add -f '" + file + "'");
                break;
            case 2:
                fs::remove(fs::path(work_) / file);
                break;
            case 3:
                git("rm -q --cached '" + file + "'");
                break;
            case 4:
                git("update-index --assume-unchanged '" + file + "'");
                break;
            case 5:
                git("update-index --no-assume-unchanged '" + file + "'");
                break;
            case 6:
                write(file, "first");
                break;
            default:
                git("commit -q -m y");
                break;
            }
        }
        GitRepository repository(work_);
        const BadgeTree tree = scanAll(repository);
        for (const auto& [path, expected] : gitBadges()) {
            EXPECT_EQ(tree.badge(path).rawValue(), expected)
                << path << " in round " << round << "\n"
                << git("status --short --ignored -- '" + path + "'");
        }
    }
}

TEST_F(TreeScannerTest, reloadNoticesWhatGitDid) {
    write("x", "x");
    commitAll();
    GitRepository repository(work_);
    EXPECT_FALSE(repository.reload());
    write("x", "y");
    EXPECT_FALSE(repository.reload());
    git("add x");
    EXPECT_TRUE(repository.reload());
    EXPECT_EQ(scanAll(repository).badge("x").rawValue(), "finishedTransfer");
    git("commit -q -m y");
    EXPECT_TRUE(repository.reload());
    EXPECT_EQ(scanAll(repository).badge("x").rawValue(), "synced");
}

TEST_F(TreeScannerTest, refusesWhatIsNoWorkTree) {
    EXPECT_THROW(GitRepository(top_.string()), GitError);
    EXPECT_THROW(GitRepository((top_ / "nowhere").string()), GitError);
    git("init -q --bare '" + (top_ / "bare").string() + "'");
    EXPECT_THROW(GitRepository((top_ / "bare").string()), GitError);
    fs::create_directories(fs::path(work_) / "sub");
    EXPECT_EQ(GitRepository(work_ + "/sub").workTree(), work_);
}

/// Descriptors up to `most` for the life of the object.
class FewDescriptors {
public:
    explicit FewDescriptors(rlim_t most) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit few{most, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit before_{};
};

class DeepTreeTest : public TreeScannerTest {
protected:
    static constexpr int kDepth = 2200;

    /// Folders named "d", one in the other, with `files` in the last one.
    std::string makeDeep(const std::vector<std::string>& files) const {
        OwnedFd folder(open(work_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        std::string path;
        for (int level = 0; level < kDepth; ++level) {
            mkdirat(folder.get(), "d", 0700);
            folder = OwnedFd(openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            path += level == 0 ? "d" : "/d";
        }
        for (const std::string& file : files) {
            const OwnedFd made(
                openat(folder.get(), file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
            EXPECT_EQ(::write(made.get(), "*.deep\n", 7), 7);
        }
        return path;
    }
    void TearDown() override {
        if (!top_.empty()) {
            EXPECT_EQ(std::system(("rm -rf '" + work_ + "'").c_str()), 0);
        }
        GitFixture::TearDown();
    }
};

TEST_F(DeepTreeTest, depthCostsNoMoreThanWidthAndFewDescriptors) {
    write(".gitignore", "*.o\n");
    const std::string deep = makeDeep({"x", "y.o", "z.deep", ".gitignore"});
    GitRepository repository(work_);
    const FewDescriptors few(128);
    const auto start = std::chrono::steady_clock::now();
    const BadgeTree tree = scanAll(repository);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(tree.badge(deep + "/x").rawValue(), "cloud");
    EXPECT_EQ(tree.badge(deep + "/y.o").rawValue(), "none");
    EXPECT_EQ(tree.badge(deep + "/z.deep").rawValue(), "none");
    EXPECT_EQ(tree.badge("d").rawValue(), "cloud");
    EXPECT_EQ(tree.fileCount(), 5U);
    EXPECT_TRUE(visited_.contains(deep));
    TreeScanner scanner(repository, User::current(), [](const std::string&, int) {});
    const Scan scan = scanner.scan(deep + "/x");
    ASSERT_EQ(scan.items.size(), 1U);
    EXPECT_TRUE(scan.items[0].state.isUntracked);
    EXPECT_TRUE(scanner.scan(deep + "/nothing").isEmpty());
}

TEST_F(DeepTreeTest, foldersBesideADeepOneAreFound) {
    const std::string deep = makeDeep({"x"});
    for (const char* path : {"d/a/x", "d/z/x", "d/d/a/x", "d/d/z/x", "a/x", "z/x"}) {
        write(path, "x");
    }
    GitRepository repository(work_);
    const BadgeTree tree = scanAll(repository);
    for (const char* path : {"d/a/x", "d/z/x", "d/d/a/x", "d/d/z/x", "a/x", "z/x"}) {
        EXPECT_EQ(tree.badge(path).rawValue(), "cloud") << path;
    }
    EXPECT_EQ(tree.badge(deep + "/x").rawValue(), "cloud");
}

TEST_F(TreeScannerTest, lackOfDescriptorsIsNoBadge) {
    write("a/b/x", "x");
    GitRepository repository(work_);
    TreeScanner scanner(repository, User::current(), [](const std::string&, int) {});
    const FewDescriptors few(3);
    EXPECT_THROW(scanner.scan(""), std::system_error);
}

TEST_F(TreeScannerTest, scanCanBeInterrupted) {
    struct Enough {};
    for (int i = 0; i < 1000; ++i) {
        write("many/" + std::to_string(i), "");
    }
    GitRepository repository(work_);
    TreeScanner scanner(
        repository, User::current(), [](const std::string&, int) {}, [] { throw Enough{}; });
    EXPECT_THROW(scanner.scan(""), Enough);
}

TEST_F(TreeScannerTest, fileOfAnotherSizeIsNotRead) {
    write("a", "abc");
    write("empty", "");
    commitAll();
    constexpr std::uintmax_t kSize = 6ULL * 1024 * 1024 * 1024;
    for (const char* name : {"a", "empty"}) {
        fs::resize_file(fs::path(work_) / name, kSize); // takes no room on the disk
    }
    GitRepository repository(work_);
    const auto start = std::chrono::steady_clock::now();
    const BadgeTree tree = scanAll(repository);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(tree.badge("a").rawValue(), "inProgress");
    EXPECT_EQ(tree.badge("empty").rawValue(), "inProgress");
}

TEST_F(TreeScannerTest, convertedFileIsJudgedByItsContent) {
    write(".gitattributes", "*.txt text eol=crlf\n");
    write("dir/a.txt", "one\r\ntwo\r\n");
    write("dir/b.bin", "one\r\n");
    commitAll();
    write("dir/a.txt", "one\r\ntwo\r\n");
    write("dir/b.bin", "two\r\n");
    EXPECT_EQ(badge("dir/a.txt"), "synced");
    EXPECT_EQ(badge("dir/b.bin"), "inProgress");
}

TEST_F(TreeScannerTest, pipesInPlaceOfRulesAreNotWaitedFor) {
    write("a.txt", "x");
    write("dir/b.txt", "x");
    commitAll();
    write("a.txt", "x");
    write("dir/b.txt", "y");
    fs::remove(fs::path(work_) / ".git/info/exclude");
    for (const char* name :
         {"/.gitignore", "/dir/.gitignore", "/dir/.gitattributes", "/.git/info/exclude"}) {
        ASSERT_EQ(mkfifo((work_ + name).c_str(), 0600), 0);
    }
    EXPECT_EQ(badge("a.txt"), "synced");
    EXPECT_EQ(badge("dir/b.txt"), "inProgress");
    EXPECT_EQ(badge("dir/.gitignore"), "none");
}

TEST_F(TreeScannerTest, rulesOfTheWholeTreeCountLeast) {
    write("excludes", "*.a\n*.b\n*.c\n");
    git("config core.excludesfile " + work_ + "/excludes");
    write(".git/info/exclude", "!*.b\n*.c\n");
    write(".gitignore", "!k.c\nclosed/\n");
    write("closed/.gitignore", "!*\n");
    for (const char* path : {"x.a", "x.b", "x.c", "k.c", "closed/k.c"}) {
        write(path, "");
    }
    write("closed/tracked", "");
    git("add -f closed/tracked");
    GitRepository repository(work_);
    const BadgeTree tree = scanAll(repository);
    for (const auto& [path, expected] : gitBadges()) {
        EXPECT_EQ(tree.badge(path).rawValue(), expected) << path;
    }
    EXPECT_EQ(tree.badge("x.a").rawValue(), "none");
    EXPECT_EQ(tree.badge("x.b").rawValue(), "cloud");
    EXPECT_EQ(tree.badge("closed/k.c").rawValue(), "none");
}

} // namespace
} // namespace corvid
