#pragma once

#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace corvid {

/// Whose rights are judged.
struct User {
    uid_t userID;
    std::vector<gid_t> groupIDs;

    /// The user that this process acts for.
    static User current();
};

/// True when the mode bits of an item let `user` read it, and enter it when it is a folder, as the
/// kernel judges an ordinary user (POSIX, "File Access Permissions"): root is given no more than
/// its bits, so that a badge means the same for everybody.
bool mayRead(const struct stat& item, const User& user);

} // namespace corvid
