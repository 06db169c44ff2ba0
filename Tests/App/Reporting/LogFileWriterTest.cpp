#include "App/Reporting/LogFileWriter.h"

#include "Platform/Fake/FakePlatform.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>

namespace corvid {
namespace {

using namespace std::chrono;
using testing::ElementsAre;

constexpr char kFolder[] = "/home/me/logs";

/// Names its files "log_N.log" by a number that the test sets.
class NumberedFiles final : public CVDDLogFileManagerDefault {
public:
    NumberedFiles() : CVDDLogFileManagerDefault(kFolder) {}
    std::optional<std::string> newLogFileName() const override {
        return "log_" + std::to_string(number) + ".log";
    }
    bool isLogFile(std::optional<std::string_view> name) const override {
        return name->starts_with("log") && name->ends_with(".log");
    }
    bool mayDelete(std::string_view name) const override { return name.starts_with("log_"); }

    int number = 1;
};

class LogFileWriterTest : public testing::Test {
protected:
    FakePlatform system;
    std::shared_ptr<NumberedFiles> files = std::make_shared<NumberedFiles>();
    LogFileWriter writer{files};

    void write(std::string_view lines) {
        while (!lines.empty()) {
            lines.remove_prefix(writer.writeSome(lines));
        }
    }
    std::string contents(const std::string& name) {
        return system.fileManager.contentsOfFile(std::string(kFolder) + "/" + name)
            .value_or("no such file");
    }
    std::set<std::string> names() {
        std::error_code error;
        std::set<std::string> names;
        for (const auto& file : system.fileManager.regularFilesOfDirectoryAtPath(kFolder, error)) {
            names.insert(file.name);
        }
        return names;
    }
};

TEST_F(LogFileWriterTest, MakesItsFolderAndItsFirstFileAtOnce) {
    writer.open();
    EXPECT_THAT(names(), ElementsAre("log_1.log"));
    write("a\nb\n");
    write("c\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\nc\n");
}

TEST_F(LogFileWriterTest, NoLineMakesAFileLargerThanItMayBe) {
    writer.setMaximumFileSize(8);
    write("1234567\n");
    files->number = 2;
    write("a\nb\nc\nd\ne\n");
    EXPECT_EQ(contents("log_1.log"), "1234567\n");
    EXPECT_EQ(contents("log_2.log"), "a\nb\nc\nd\n");
    EXPECT_EQ(contents("log_2_2.log"), "e\n");
}

TEST_F(LogFileWriterTest, ALineThatIsTooLongForAnyFileGetsOneToItself) {
    writer.setMaximumFileSize(4);
    write("a\n0123456789\nb\n");
    EXPECT_EQ(contents("log_1.log"), "a\n");
    EXPECT_EQ(contents("log_1_2.log"), "0123456789\n");
    EXPECT_EQ(contents("log_1_3.log"), "b\n");
}

TEST_F(LogFileWriterTest, BeginsANewFileOnceTheOldOneIsADayOld) {
    writer.setRollingFrequency(24h);
    write("a\n");
    files->number = 2;
    system.clock.advance(24h - 1ms);
    write("b\n");
    system.clock.advance(1ms);
    write("c\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
    EXPECT_EQ(contents("log_2.log"), "c\n");
}

TEST_F(LogFileWriterTest, AClockThatIsSetBackDoesNotKeepAFileForEver) {
    writer.setRollingFrequency(24h);
    write("a\n");
    files->number = 2;
    system.clock.setNow(system.clock.now() - days(400));
    write("b\n");
    system.clock.advance(24h);
    write("c\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
    EXPECT_EQ(contents("log_2.log"), "c\n");
}

TEST_F(LogFileWriterTest, TimeThatTheMachineSleptCounts) {
    writer.setRollingFrequency(24h);
    write("a\n");
    files->number = 2;
    system.clock.setNow(system.clock.now() + 24h);
    write("b\n");
    EXPECT_EQ(contents("log_2.log"), "b\n");
}

TEST_F(LogFileWriterTest, AnOldFileGoesOnWhenNoNewOneCanBeMade) {
    writer.setRollingFrequency(24h);
    write("a\n");
    system.clock.advance(24h);
    system.fileManager.failCreationWith(std::make_error_code(std::errc::permission_denied));
    write("b\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
    system.fileManager.failCreationWith({});
    write("c\n");
    EXPECT_EQ(contents("log_1_2.log"), "c\n");
}

TEST_F(LogFileWriterTest, AFileThatIsRemovedOrReplacedIsLeft) {
    write("a\n");
    system.fileManager.removeItemAtPath(std::string(kFolder) + "/log_1.log");
    write("b\n");
    EXPECT_EQ(contents("log_1_2.log"), "b\n");
    system.fileManager.putFile(std::string(kFolder) + "/log_1_2.log", "not ours\n");
    write("c\n");
    EXPECT_EQ(contents("log_1_2.log"), "not ours\n");
    EXPECT_EQ(contents("log_1_3.log"), "c\n");
}

TEST_F(LogFileWriterTest, AFolderThatIsRemovedIsMadeAgain) {
    write("a\n");
    system.fileManager.removeTree(kFolder);
    write("b\n");
    EXPECT_EQ(contents("log_1_2.log"), "b\n");
}

TEST_F(LogFileWriterTest, ANameThatIsTakenIsNotWrittenTo) {
    system.fileManager.createDirectoryAtPath(kFolder);
    system.fileManager.putFile(std::string(kFolder) + "/log_1.log", "earlier\n");
    system.fileManager.putFile(std::string(kFolder) + "/log_1_2.log", "earlier\n");
    write("a\n");
    EXPECT_EQ(contents("log_1.log"), "earlier\n");
    EXPECT_EQ(contents("log_1_2.log"), "earlier\n");
    EXPECT_EQ(contents("log_1_3.log"), "a\n");
}

TEST_F(LogFileWriterTest, KeepsTheNewestFilesAndNothingOfOthers) {
    system.fileManager.createDirectoryAtPath(kFolder);
    system.fileManager.putFile(std::string(kFolder) + "/log9_1.log", "another's\n");
    system.fileManager.putFile(std::string(kFolder) + "/log.log", "nobody's\n");
    system.fileManager.putFile(std::string(kFolder) + "/log_0.log", "of an earlier process\n");
    system.clock.advance(1s);
    system.fileManager.putFile(std::string(kFolder) + "/log_00.log", "later of it\n");
    // Older by its date than what is there, but made by this manager and so the newest.
    system.clock.setNow(system.clock.now() - days(1));

    files->setMaximumNumberOfLogFiles(3);
    writer.setMaximumFileSize(2);
    write("a\n");
    EXPECT_THAT(names(),
                ElementsAre("log.log", "log9_1.log", "log_0.log", "log_00.log", "log_1.log"));
    write("b\n");
    EXPECT_THAT(names(),
                ElementsAre("log.log", "log9_1.log", "log_00.log", "log_1.log", "log_1_2.log"));
    write("c\nd\ne\n");
    EXPECT_THAT(names(),
                ElementsAre("log.log", "log9_1.log", "log_1_3.log", "log_1_4.log", "log_1_5.log"));
}

TEST_F(LogFileWriterTest, NeverTakesANameOfAnEarlierFileAgain) {
    files->setMaximumNumberOfLogFiles(1);
    writer.setMaximumFileSize(2);
    write("a\nb\nc\n");
    EXPECT_THAT(names(), ElementsAre("log_1_3.log"));
    EXPECT_EQ(contents("log_1_3.log"), "c\n");
}

constexpr char kNoticeStart[] = "2026-11-16 03:02:05.678 +00:00 4242:1 warn    File logger: ";

TEST_F(LogFileWriterTest, AFullDiskCostsWholeLinesAndIsTold) {
    system.fileManager.setFreeSpace(5);
    write("a\nb\nc\nd\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
    write("e\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
    system.fileManager.setFreeSpace(std::nullopt);
    write("f\ng\n");
    EXPECT_EQ(contents("log_1.log"),
              std::string("a\nb\n") + kNoticeStart +
                  "3 lines could not be written: No space left on device\nf\ng\n");
    write("h\n");
    EXPECT_TRUE(contents("log_1.log").ends_with("device\nf\ng\nh\n"));
}

TEST_F(LogFileWriterTest, ANoticeThatDoesNotFitIsTriedAgain) {
    system.fileManager.setFreeSpace(0);
    write("a\n");
    system.fileManager.setFreeSpace(20);
    write("b\n");
    EXPECT_EQ(contents("log_1.log"), "");
    system.fileManager.setFreeSpace(std::nullopt);
    write("c\n");
    EXPECT_EQ(contents("log_1.log"),
              std::string(kNoticeStart) +
                  "2 lines could not be written: No space left on device\nc\n");
}

TEST_F(LogFileWriterTest, AFolderThatCannotBeMadeCostsLinesOnlyWhileItLasts) {
    system.fileManager.failCreationWith(std::make_error_code(std::errc::permission_denied));
    writer.open();
    write("a\n");
    system.fileManager.failCreationWith({});
    write("b\n");
    EXPECT_EQ(contents("log_1.log"),
              std::string(kNoticeStart) +
                  "1 line could not be written: No such file or directory\nb\n");
}

TEST_F(LogFileWriterTest, AFullFileIsNotExceededWhenNoNewOneCanBeMade) {
    writer.setMaximumFileSize(4);
    write("a\nb\n");
    system.fileManager.failCreationWith(std::make_error_code(std::errc::permission_denied));
    write("c\nd\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
    system.fileManager.failCreationWith({});
    writer.setMaximumFileSize(0);
    write("e\n");
    EXPECT_TRUE(
        contents("log_1.log").ends_with("2 lines could not be written: Permission denied\ne\n"));
}

TEST_F(LogFileWriterTest, TheNoticeCountsForTheSizeOfTheFile) {
    writer.setMaximumFileSize(10);
    write("1234567\n");
    system.fileManager.failCreationWith(std::make_error_code(std::errc::permission_denied));
    write("abcdefg\n");
    system.fileManager.failCreationWith({});
    write("x\n");
    EXPECT_EQ(contents("log_1.log"), "1234567\n");
    EXPECT_TRUE(contents("log_1_2.log").ends_with("Permission denied\nx\n"));
}

TEST_F(LogFileWriterTest, TheHandlerOfASignalWritesToTheCurrentFile) {
    writer.writeInSignalHandler("before any file\n");
    write("a\n");
    writer.writeInSignalHandler("b\n");
    EXPECT_EQ(contents("log_1.log"), "a\nb\n");
}

} // namespace
} // namespace corvid
