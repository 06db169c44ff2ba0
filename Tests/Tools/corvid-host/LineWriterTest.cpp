#include "Tools/corvid-host/LineWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace corvid {
namespace {

class LineWriterTest : public ::testing::Test {
protected:
    LineWriterTest() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
    ~LineWriterTest() override {
        for (const int end : ends_) {
            close(end);
        }
    }

    void open() {
        writer_.emplace(ends_[1],
                        [](std::size_t count) { return std::to_string(count) + " dropped"; });
    }
    std::string readAll() {
        close(ends_[1]);
        ends_[1] = -1;
        std::string all;
        std::array<char, 65536> buffer{};
        for (ssize_t count = 0; (count = read(ends_[0], buffer.data(), buffer.size())) > 0;) {
            all.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return all;
    }

    std::array<int, 2> ends_{};
    std::optional<LineWriter> writer_;
};

TEST_F(LineWriterTest, allIsWrittenInOrderBeforeItGoes) {
    open();
    writer_->add("one");
    writer_->add("");
    writer_->add("two");
    writer_.reset();
    EXPECT_EQ(readAll(), "one\n\ntwo\n");
}

TEST_F(LineWriterTest, whoSaysSomethingNeverWaits) {
    open();
    const auto start = std::chrono::steady_clock::now();
    // Twice as much as it holds, of short lines and long ones; nobody reads.
    for (std::size_t bytes = 0; bytes < 2 * LineWriter::kMostBytes; bytes += 1001) {
        writer_->add(std::string(1000, 'x'));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    std::string read(1 << 20, '\0');
    const ssize_t count = ::read(ends_[0], read.data(), read.size());
    EXPECT_GT(count, 0);
    // The writing thread ends before its descriptor does.
    close(ends_[0]);
    ends_[0] = -1;
    writer_.reset();
}

TEST_F(LineWriterTest, whatWasDroppedIsCountedInItsPlace) {
    open();
    std::size_t count = 0;
    for (std::size_t bytes = 0; bytes < 2 * LineWriter::kMostBytes; bytes += 100'001, ++count) {
        writer_->add(std::string(100'000, 'x'));
    }
    // Somebody reads from now on.
    std::string all;
    std::array<char, 65536> buffer{};
    while (!all.ends_with("dropped\n")) {
        const ssize_t got = read(ends_[0], buffer.data(), buffer.size());
        ASSERT_GT(got, 0);
        all.append(buffer.data(), static_cast<std::size_t>(got));
    }
    const std::size_t last = all.rfind('\n', all.size() - 2);
    const std::size_t dropped = std::stoul(all.substr(last + 1));
    const auto written = static_cast<std::size_t>(std::ranges::count(all, '\n')) - 1;
    EXPECT_GT(dropped, 0U);
    EXPECT_EQ(written + dropped, count);
    EXPECT_LE(all.size(), LineWriter::kMostBytes + 2 * 100'001);
    writer_->add("after");
    writer_.reset();
    EXPECT_EQ(readAll(), "after\n");
}

TEST_F(LineWriterTest, endDoesNotWaitForAReaderThatSleeps) {
    open();
    writer_->add(std::string(1 << 20, 'x'));
    const auto start = std::chrono::steady_clock::now();
    writer_.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10 * LineWriter::kLongestEnd);
    // Lets the thread that was left behind end; its descriptor stays open for it.
    close(ends_[0]);
    ends_[0] = -1;
    ends_[1] = -1;
}

TEST_F(LineWriterTest, readerThatHasGoneCostsTheLinesOnly) {
    close(ends_[0]);
    ends_[0] = -1;
    open();
    writer_->add("one");
    writer_.reset();
}

} // namespace
} // namespace corvid
