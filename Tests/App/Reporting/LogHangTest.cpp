// A disk that does not answer, at each call that the logs make of it; and one that refuses.

#include "App/Logging/CVMALogFileManager.h"
#include "App/Reporting/CVDDFileLogger.h"
#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/CallWithin.h"
#include "App/Reporting/LogTrouble.h"
#include "Core/Base/Mutex.h"
#include "Platform/Fake/FakePlatform.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvid {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using testing::EndsWith;
using testing::HasSubstr;

/// Ten times what the bounds say, for a busy machine.
constexpr auto kPatience = 30s;

/// A disk that hangs when it is told to: every call of one kind then waits.
class HangingDisk final : public FileManager {
public:
    enum class Call { none, exists, createDirectory, list, createFile, append, remove };

    explicit HangingDisk(FileManager& disk) : disk_(disk) {}
    ~HangingDisk() override { hangAt(Call::none); }

    void hangAt(Call call) {
        {
            const MutexLock lock(mutex_);
            hanging_ = call;
        }
        changed_.notify_all();
    }
    /// Waits until a call hangs.
    void waitForHang() {
        MutexLock lock(mutex_);
        while (waiting_ == 0) {
            lock.wait(changed_);
        }
    }

    Existence fileExistsAtPath(const std::string& path) const override {
        pass(Call::exists);
        return disk_.fileExistsAtPath(path);
    }
    std::optional<std::string> createDirectoryAtPath(const std::string& path) override {
        pass(Call::createDirectory);
        return disk_.createDirectoryAtPath(path);
    }
    std::unique_ptr<AppendFile> createFileAtPath(const std::string& path,
                                                 std::error_code& error) override {
        pass(Call::createFile);
        auto file = disk_.createFileAtPath(path, error);
        return file != nullptr ? std::make_unique<File>(*this, std::move(file)) : nullptr;
    }
    std::vector<RegularFile> regularFilesOfDirectoryAtPath(const std::string& path,
                                                           std::error_code& error) const override {
        pass(Call::list);
        return disk_.regularFilesOfDirectoryAtPath(path, error);
    }
    std::error_code removeItemAtPath(const std::string& path) override {
        pass(Call::remove);
        return disk_.removeItemAtPath(path);
    }
    std::optional<std::string> applicationLibraryDirectory() const override {
        return disk_.applicationLibraryDirectory();
    }

private:
    class File final : public AppendFile {
    public:
        File(HangingDisk& disk, std::unique_ptr<AppendFile> file)
            : disk_(disk), file_(std::move(file)) {}
        Appended append(std::string_view bytes) noexcept override {
            disk_.pass(Call::append);
            return file_->append(bytes);
        }
        std::error_code truncate(std::uint64_t size) override { return file_->truncate(size); }
        bool isAtPath(const std::string& path) const override { return file_->isAtPath(path); }

    private:
        HangingDisk& disk_;
        const std::unique_ptr<AppendFile> file_;
    };

    void pass(Call call) const {
        MutexLock lock(mutex_);
        ++waiting_;
        while (hanging_ == call) {
            changed_.notify_all();
            lock.wait(changed_);
        }
        --waiting_;
    }

    FileManager& disk_;
    mutable Mutex mutex_;
    mutable std::condition_variable changed_;
    mutable int waiting_ CORVID_GUARDED_BY(mutex_) = 0;
    Call hanging_ CORVID_GUARDED_BY(mutex_) = Call::none;
};

class OneName final : public CVDDLogFileManagerDefault {
public:
    OneName() : CVDDLogFileManagerDefault("/home/me/logs") {}
    std::optional<std::string> newLogFileName() const override { return "one.log"; }
    bool isLogFile(std::optional<std::string_view> name) const override {
        return name->starts_with("one");
    }

protected:
    bool mayDelete(std::string_view name) const override { return isLogFile(name); }
};

using Call = HangingDisk::Call;

/// Short, so that the tests are.
constexpr LogWaits kShortWaits{
    .fullRing = 200ms, .hung = 200ms, .opening = 100ms, .flush = 300ms, .retry = 100ms};

class LogHang : public testing::Test {
protected:
    FakePlatform system;
    HangingDisk disk{system.fileManager};
    const Platform platform_{system.processInfo, disk,
                             system.clock,       system.bundle,
                             system.dispatch,    system.messagePorts,
                             system.systemLog,   nullptr};
    const Platform* const previous_ = setPlatform(&platform_);
    std::shared_ptr<OneName> files = std::make_shared<OneName>();
    bool isWriterStopped_ = false; ///< it sleeps for good, for a handler that writes in its place
    std::unique_ptr<CVDDFileLogger> logger = std::make_unique<CVDDFileLogger>(files, kShortWaits);

    ~LogHang() override {
        disk.hangAt(Call::none);
        const std::weak_ptr<OneName> held = files;
        files.reset();
        logger.reset();
        CVDDLog::removeAllLoggers();
        if (!isWriterStopped_) {
            waitForThreadWith(held);
        }
        setPlatform(previous_);
    }
    /// On a busy machine a logger gives its thread up even without a disk that hangs, and the
    /// thread needs the platform until it has ended.
    static void waitForThreadWith(const std::weak_ptr<CVDDLogFileManagerDefault>& manager) {
        const auto deadline = steady_clock::now() + kPatience;
        while (!manager.expired() && steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(manager.expired());
    }
    std::string contents(const std::string& name = "one.log") {
        return system.fileManager.contentsOfFile("/home/me/logs/" + name).value_or("no such file");
    }
    /// Logs numbered lines until more than the ring holds has been given; how many they were.
    int fillRing() {
        const std::string filler(1000, 'x');
        int lines = 0;
        for (std::size_t bytes = 0; bytes < 2 * CVDDFileLogger::kRingSize; bytes += filler.size()) {
            logger->logMessage("line " + std::to_string(lines++) + " " + filler, 16);
        }
        return lines;
    }
    void waitUntilWell() {
        const auto deadline = steady_clock::now() + kPatience;
        while (!logger->problem().empty() && steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_EQ(logger->problem(), "");
    }
    template <class Body>
    static steady_clock::duration timeOf(Body body) {
        const auto start = steady_clock::now();
        body();
        return steady_clock::now() - start;
    }
};

TEST_F(LogHang, AFullRingIsWaitedForOnceThenLinesAreDroppedAndCountedInTheirPlace) {
    logger->start();
    logger->logMessage("before", 16);
    logger->flush();
    disk.hangAt(Call::append);
    int given = 0;
    EXPECT_LT(timeOf([&] { given = fillRing(); }), kShortWaits.fullRing * 10);
    // From now on nobody waits at all.
    EXPECT_LT(timeOf([&] {
                  std::vector<std::thread> threads;
                  for (int thread = 0; thread < 8; ++thread) {
                      threads.emplace_back([&] { logger->logMessage(std::string(2000, 'y'), 16); });
                  }
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
              }),
              kShortWaits.fullRing);
    given += 8;
    EXPECT_THAT(logger->problem(), HasSubstr("/home/me/logs: the disk did not answer ("));

    disk.hangAt(Call::none);
    waitUntilWell();
    logger->logMessage("after", 16);
    logger->flush();
    const std::string text = contents();
    const auto kept = std::count(text.begin(), text.end(), '\n') - 3;
    EXPECT_GT(kept, 400);
    EXPECT_LT(kept, given);
    const std::string last = "line " + std::to_string(kept - 1) + " ";
    const std::string notice = "warn    File logger: " + std::to_string(given - kept) +
                               " lines could not be written: the disk did not answer\n";
    ASSERT_THAT(text, HasSubstr(last));
    ASSERT_THAT(text, HasSubstr(notice));
    EXPECT_LT(text.find(last), text.find(notice));
    EXPECT_GT(text.find("after\n"), text.find(notice));
    EXPECT_THAT(text, EndsWith("after\n"));
}

TEST_F(LogHang, WhatWasLostIsSaidWithoutAnotherLine) {
    logger->start();
    disk.hangAt(Call::append);
    fillRing();
    disk.hangAt(Call::none);
    waitUntilWell();
    // All is well once the disk answers; the line follows at once, by itself.
    const std::string_view notice = "lines could not be written: the disk did not answer\n";
    const auto deadline = steady_clock::now() + kPatience;
    while (!contents().ends_with(notice) && steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_THAT(contents(), EndsWith(notice));
}

TEST_F(LogHang, ADiskThatHangsIsToldBeforeTheRingIsFull) {
    logger->start();
    disk.hangAt(Call::append);
    logger->logMessage("one line", 16);
    const auto deadline = steady_clock::now() + kPatience;
    while (logger->problem().empty() && steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_THAT(logger->problem(), HasSubstr("(0 lines are lost so far)"));
    disk.hangAt(Call::none);
    waitUntilWell();
}

/// Whatever call it is that hangs when a new file is begun.
class LogHangRolling : public LogHang, public testing::WithParamInterface<Call> {};

TEST_P(LogHangRolling, CallersGoOn) {
    files->setMaximumNumberOfLogFiles(2);
    logger->setMaximumFileSize(64 * 1024);
    logger->start();
    disk.hangAt(GetParam());
    EXPECT_LT(timeOf([&] { fillRing(); }), kPatience);
    EXPECT_THAT(logger->problem(), HasSubstr("the disk did not answer"));
    EXPECT_LT(timeOf([&] { logger->flush(); }), kPatience);
    disk.hangAt(Call::none);
    waitUntilWell();
}

TEST_P(LogHangRolling, TheStartGoesOnWithoutTheFirstFile) {
    if (GetParam() == Call::remove) {
        GTEST_SKIP() << "there is nothing to remove at the start";
    }
    files->setMaximumNumberOfLogFiles(2);
    disk.hangAt(GetParam());
    EXPECT_LT(timeOf([&] { logger->start(); }), kShortWaits.opening * 10);
    logger->logMessage("early", 16);
    if (GetParam() != Call::append) {
        EXPECT_THAT(logger->problem(), HasSubstr("the disk did not answer"));
    }
    disk.hangAt(Call::none);
    waitUntilWell();
    logger->flush();
    EXPECT_THAT(contents(), EndsWith("verbose early\n"));
}

INSTANTIATE_TEST_SUITE_P(Calls, LogHangRolling,
                         testing::Values(Call::exists, Call::list, Call::createFile, Call::remove,
                                         Call::append));

TEST_F(LogHang, AFlushAndTheEndGiveUpAndTheThreadEndsLater) {
    logger->start();
    disk.hangAt(Call::append);
    logger->logMessage("line", 16);
    disk.waitForHang();
    const std::weak_ptr<OneName> held = files;
    files.reset();
    EXPECT_LT(timeOf([&] {
                  logger->flush();
                  logger.reset();
              }),
              (kShortWaits.hung + kShortWaits.flush) * 10);
    EXPECT_TRUE(CVDDFileLogger::isThreadLeftBehind());
    EXPECT_FALSE(held.expired());
    disk.hangAt(Call::none);
    waitForThreadWith(held);
}

TEST_F(LogHang, TheHandlerOfASignalGivesUp) {
    logger->start();
    disk.hangAt(Call::append);
    logger->logMessage("line", 16);
    disk.waitForHang();
    EXPECT_LT(timeOf([&] { logger->writeQueuedInSignalHandler(); }), 10s);
    isWriterStopped_ = true;
}

TEST_F(LogHang, ADiskThatRefusesIsToldWithTheRemedyAndTriedAgain) {
    system.fileManager.createDirectoryAtPath("/home/me/logs");
    system.fileManager.failCreationWith(std::make_error_code(std::errc::permission_denied));
    logger->start();
    EXPECT_EQ(logger->problem(),
              "The log cannot be written to /home/me/logs: Permission denied (0 lines are lost so "
              "far). Make the folder your own and writable (chmod u+rwx); the log then goes on by "
              "itself.");
    logger->logMessage("lost", 16);
    logger->flush();
    EXPECT_THAT(logger->problem(), HasSubstr("(1 line is lost so far)"));
    system.fileManager.failCreationWith({});
    waitUntilWell();
    EXPECT_THAT(contents(), EndsWith("1 line could not be written: Permission denied\n"));
}

class LogHangFolder : public LogHang, public testing::WithParamInterface<Call> {};

TEST_P(LogHangFolder, TheFolderIsNotWaitedForLong) {
    disk.hangAt(GetParam());
    std::shared_ptr<CVMALogFileManager> manager;
    EXPECT_LT(timeOf([&] { manager = CVMALogFileManager::withBaseName("CVMAExt_4242"); }),
              (CVMALogFileManager::kDirectoryWait + kLogWaits.opening) * 10);
    EXPECT_NE(manager->logsDirectory(), "");
    EXPECT_THAT(CVDDLog::problem(), HasSubstr("the disk did not answer"));
    CVDDLog::log("early", 1);
    disk.hangAt(Call::none);
    const auto deadline = steady_clock::now() + kPatience;
    while (!CVDDLog::problem().empty() && steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    CVDDLog::removeAllLoggers();
    EXPECT_THAT(
        system.fileManager
            .contentsOfFile(manager->logsDirectory() + "/CVMAExt_4242_2026_16_11_03_02_05.log")
            .value_or(""),
        EndsWith("error   early\n"));
}

INSTANTIATE_TEST_SUITE_P(Calls, LogHangFolder,
                         testing::Values(Call::exists, Call::createDirectory));

TEST_F(LogHang, AFolderThatCannotBeMadeIsToldAsLongAsTheLoggerLives) {
    system.fileManager.failCreationWith(std::make_error_code(std::errc::read_only_file_system));
    const auto manager = CVMALogFileManager::withBaseName("CVMAExt_4242");
    EXPECT_THAT(CVDDLog::problem(),
                HasSubstr("the folder /home/me/Library/Logs/com.corvid.desktop.widget.FinderExt "
                          "could not be made: \"/home/me/Library\": Read-only file system. "));
    EXPECT_THAT(CVDDLog::problem(), HasSubstr("the next one writes a log."));
    CVDDLog::removeAllLoggers();
    EXPECT_EQ(CVDDLog::problem(), "");
}

} // namespace
} // namespace corvid
