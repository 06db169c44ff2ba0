#include "Platform/Unix/FrameWriter.h"
#include "Platform/Unix/FrameReader.h"
#include "Platform/Unix/OwnedFd.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <numeric>
#include <sys/socket.h>

namespace corvid {
namespace {

struct Pair {
    Pair() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        writing = OwnedFd(ends[0]);
        reading = OwnedFd(ends[1]);
    }
    OwnedFd writing;
    OwnedFd reading;
};

FrameHeader headerOf(const Bytes& data) {
    FrameHeader header;
    header.hasData = true;
    header.number = 7;
    header.dataBytes = static_cast<std::uint32_t>(data.size());
    return header;
}

// Below, at and above what is sent in one piece, and what no socket's buffer holds.
class FrameWriterTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(FrameWriterTest, WritesTheWholeFrameWhateverTheSocketTakes) {
    Bytes data(GetParam());
    std::iota(data.begin(), data.end(), std::uint8_t{1});
    const Pair pair;
    const int smallest = 0; // The system takes its own minimum.
    setsockopt(pair.writing.get(), SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);

    FrameWriter writer(headerOf(data), data);
    EXPECT_FALSE(writer.hasBegun());
    FrameReader reader;
    Bytes piece(1000);
    while (reader.state() != FrameReader::State::complete) {
        if (!writer.isDone() && writer.write(pair.writing.get()) < 0) {
            ASSERT_EQ(errno, EAGAIN);
        }
        EXPECT_TRUE(writer.hasBegun());
        const ssize_t count = recv(pair.reading.get(), piece.data(), piece.size(), 0);
        ASSERT_GT(count, 0);
        reader.feed(ByteView(piece).first(static_cast<std::size_t>(count)));
    }
    EXPECT_TRUE(writer.isDone());
    EXPECT_EQ(reader.header(), headerOf(data));
    EXPECT_EQ(reader.takeData(), data);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrameWriterTest,
                         ::testing::Values(0, 1, 4096 - kFrameHeaderBytes, 4097 - kFrameHeaderBytes,
                                           300'000));

TEST(FrameWriterTest, HasNotBegunWhenNobodyReads) {
    Pair pair;
    pair.reading.reset();
    const Bytes data(100);
    FrameWriter writer(headerOf(data), data);
    EXPECT_LT(writer.write(pair.writing.get()), 0);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(writer.hasBegun());
    EXPECT_FALSE(writer.isDone());
}

} // namespace
} // namespace corvid
