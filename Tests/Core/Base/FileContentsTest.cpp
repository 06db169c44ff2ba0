#include "Core/Base/FileContents.h"

#include "Tests/Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

namespace corvid {
namespace {

TEST(FileContentsTest, ReadsEveryByte) {
    const TemporaryFolder folder;
    const std::string written = std::string("a\r\n\0b", 5) + std::string(100'000, '\xFF');
    std::ofstream(folder / "file", std::ios::binary) << written;
    EXPECT_EQ(readFile(folder / "file"), written);
}

TEST(FileContentsTest, SaysWhyNot) {
    const TemporaryFolder folder;
    EXPECT_EQ(readFile(folder / "missing"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(readFile(folder.path()), std::nullopt);
    EXPECT_EQ(errno, EISDIR);
}

} // namespace
} // namespace corvid
