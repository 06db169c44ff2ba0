#include "Tools/corvid-host/Git/ReadPermission.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

struct Case {
    mode_t mode;
    uid_t owner;
    gid_t group;
    bool mayRead;
};

TEST(ReadPermission, goesByTheFirstOfOwnerGroupAndOthersThatFits) {
    const User user{1000, {1000, 27}};
    const Case cases[] = {
        {S_IFREG | 0644, 1000, 1000, true}, {S_IFREG | 0400, 1000, 1, true},
        {S_IFREG | 0200, 1000, 1, false},   {S_IFREG | 0077, 1000, 1000, false},
        {S_IFREG | 0040, 1, 27, true},      {S_IFREG | 0404, 1, 27, false},
        {S_IFREG | 0004, 1, 1, true},       {S_IFREG | 0440, 1, 1, false},
        {S_IFDIR | 0500, 1000, 1, true},    {S_IFDIR | 0400, 1000, 1, false},
        {S_IFDIR | 0100, 1000, 1, false},   {S_IFDIR | 0005, 1, 1, true},
    };
    for (const Case& row : cases) {
        struct stat item{};
        item.st_mode = row.mode;
        item.st_uid = row.owner;
        item.st_gid = row.group;
        EXPECT_EQ(mayRead(item, user), row.mayRead)
            << std::oct << row.mode << std::dec << " of " << row.owner << ":" << row.group;
    }
}

TEST(ReadPermission, rootHasNoMoreThanItsBits) {
    const User root{0, {0}};
    struct stat item{};
    item.st_mode = S_IFREG;
    EXPECT_FALSE(mayRead(item, root));
    item.st_mode = S_IFREG | 0600;
    item.st_uid = 1000;
    item.st_gid = 1000;
    EXPECT_FALSE(mayRead(item, root));
}

} // namespace
} // namespace corvid
