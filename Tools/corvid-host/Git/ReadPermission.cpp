#include "Tools/corvid-host/Git/ReadPermission.h"

#include <algorithm>

#include <unistd.h>

namespace corvid {

User User::current() {
    User user{geteuid(), {getegid()}};
    const int count = getgroups(0, nullptr);
    if (count > 0) {
        std::vector<gid_t> groups(static_cast<std::size_t>(count));
        const int filled = getgroups(count, groups.data());
        groups.resize(filled > 0 ? static_cast<std::size_t>(filled) : 0);
        user.groupIDs.insert(user.groupIDs.end(), groups.begin(), groups.end());
    }
    return user;
}

bool mayRead(const struct stat& item, const User& user) {
    const bool isOwner = item.st_uid == user.userID;
    const bool isInGroup = std::ranges::find(user.groupIDs, item.st_gid) != user.groupIDs.end();
    const unsigned int shift = isOwner ? 6 : isInGroup ? 3 : 0;
    const unsigned int needed = S_ISDIR(item.st_mode) ? 05 : 04;
    return ((item.st_mode >> shift) & needed) == needed;
}

} // namespace corvid
