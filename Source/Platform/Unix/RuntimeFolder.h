#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <string>
#include <string_view>
#include <sys/types.h>

namespace corvid {

/// The folder of this user in which the processes of the system find each other: ports, sockets
/// and small files that live as long as a session.
///
/// It and the folders in it belong to this user, mode 0700, and are never reached through a
/// symbolic link; a folder that is otherwise is refused, not mended, since somebody else may have
/// put it there. Immutable. Any thread.
class RuntimeFolder {
public:
    /// `$XDG_RUNTIME_DIR/corvid` when that variable holds an absolute path, else `corvid-` and the
    /// number of this user in the system's temporary folder.
    /// https://specifications.freedesktop.org/basedir-spec/latest/
    static RuntimeFolder ofThisUser();

    /// The folder at the absolute `path`, whose parent is trusted and not checked.
    explicit RuntimeFolder(std::string path);

    const std::string& path() const { return path_; }
    /// The number of this user, to whom everybody in the folder belongs.
    uid_t user() const { return user_; }

    /// The path of something in it.
    std::string pathOf(std::string_view name) const;

    enum class IfMissing { fail, create };

    /// A folder that was opened and checked, or why not.
    struct Opened {
        OwnedFd fd;          ///< opened for reading
        std::string problem; ///< names the path, what is wrong and the remedy; empty when opened
        /// It may be there and good, but the system has not let this process look: it has no
        /// descriptor or memory left, say.
        bool isUnknown = false;
    };
    /// Opens the folder itself.
    Opened open(IfMissing ifMissing) const;
    /// Opens the folder `name` in it.
    Opened openFolder(std::string_view name, IfMissing ifMissing) const;

    /// Keeps other processes that change `folder` out until it is closed, or unlock(). False when
    /// one of them has not let go for a second; each needs less than a millisecond.
    static bool lock(int folder);
    static void unlock(int folder);

    /// True as long as the opened `folder` is this user's alone and has not been removed.
    bool isStillGood(int folder) const;

private:
    std::string path_;
    uid_t user_;
};

} // namespace corvid
