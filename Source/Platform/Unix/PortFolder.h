#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Unix/Deadline.h"
#include "Platform/Unix/ForkClosedFd.h"
#include "Platform/Unix/OwnedFd.h"
#include "Platform/Unix/RuntimeFolder.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace corvid {

/// A name that a live process of this user serves.
struct LivePort {
    std::string name;
    pid_t process = 0;                           ///< 0: it hangs, so that it cannot be asked
    std::chrono::system_clock::time_point since; ///< when the name was taken
};

class PortFolder;

/// Who has taken a name in a PortFolder, and can do with another socket. Any thread.
class NameHolder {
public:
    virtual ~NameHolder() = default;
    /// Looks whether its name still leads to it, and takes it again from `folder` if not. The
    /// problem, if it cannot; empty otherwise.
    virtual std::string keepName(PortFolder& folder) = 0;
};

/// The folder `ports` of the runtime folder: one listening socket a name.
///
/// A name is alive as long as its socket accepts connections, so it is free again the moment its
/// owner dies, however it dies. Taking a name is done under a lock on the folder, so exactly one
/// of several takers succeeds. docs/message-port-protocol.md says the same for other languages.
/// Any thread.
class PortFolder {
public:
    explicit PortFolder(RuntimeFolder runtimeFolder);

    const RuntimeFolder& runtimeFolder() const { return runtimeFolder_; }
    const std::string& path() const { return path_; }

    /// The file name of the socket of `name` (1 to 255 bytes); two names never have the same one
    /// unless they are so long that it is made with a hash (see the protocol's page).
    static std::string fileName(std::string_view name);

    enum class ConnectResult {
        connected,
        absent,   ///< nobody serves the name
        timedOut, ///< somebody does, but has no room for one more connection
        failed,   ///< it cannot be found out: this process lacks descriptors or memory, say
    };
    /// A stream connection to the process that serves a name.
    struct Connection {
        ConnectResult result = ConnectResult::absent;
        OwnedFd fd; ///< non-blocking
        pid_t process = 0;
        bool isDead = false; ///< absent because its owner has died
        std::string problem; ///< why it failed: names the thing and the system's reason
    };
    /// Connects to `name`. A port of another user counts as absent, and so does a bad folder.
    /// When the port has no room for one more connection, waits until `deadline`; without one it
    /// does not wait and answers timedOut, which also means: there is such a port.
    Connection connect(std::string_view name, std::optional<Deadline> deadline) const;

    /// The socket of a name that this process owns, and where it is.
    struct Listener {
        ForkClosedFd fd; ///< listening, non-blocking; none in a forked child
        OwnedFd folder;
        std::string file;
        ino_t inode = 0;
        dev_t device = 0;
    };
    /// Which file the name of a listener is: an open socket keeps its numbers, so that no other
    /// can be taken for it.
    struct Place {
        std::string file;
        ino_t inode = 0;
        dev_t device = 0;
    };
    /// Takes `name`, making the folder if need be. Nothing when a live process has the name, this
    /// one included, or it cannot be had; then `problem`, if given, says why in words.
    std::optional<Listener> take(std::string_view name, std::string* problem = nullptr);

    /// What became of an attempt to take a name.
    struct Taken {
        std::optional<Listener> listener;
        bool isAnothers = false; ///< a live process has the name, this one perhaps
        pid_t owner = 0;         ///< that process; 0 when it hangs
        std::string problem;     ///< why there is no listener, in words
    };
    /// As take().
    Taken tryToTake(std::string_view name);

    /// False when the name leads to another socket or to none: its file, or the folder, was
    /// removed or moved away. Costs one call of the system.
    bool leadsTo(const Place& place) const;

    /// Has `holder` asked by keepNames() for as long as it lives.
    void addHolder(std::weak_ptr<NameHolder> holder);
    /// Has every holder look after its name: to be called whenever something has happened in the
    /// folder. A name that was lost is taken again, with the messages that wait at the old socket;
    /// where another process has it by now, the holder gives way: it answers nobody until it has
    /// the name again. Empty when all names lead here; else one reason why not.
    std::string keepNames();

    /// Connects `socket` to the listening socket whose file was opened as `file` (O_PATH). The
    /// result and `errno` of connect().
    static int connectTo(int file, int socket);

    /// Frees the name of `listener`: from now on it is absent. Does nothing in a forked child.
    static void release(Listener& listener);

    /// What was found of the ports.
    struct Listing {
        std::vector<LivePort> ports; ///< sorted by name
        /// Why there may be others that are alive; empty when these are all.
        std::string problem;
    };
    /// The live ports whose names begin with `prefix`.
    Listing list(std::string_view prefix = {}) const;
    /// The same, for who can do nothing about a problem.
    std::vector<LivePort> livePorts(std::string_view prefix = {}) const {
        return list(prefix).ports;
    }

private:
    /// The opened folder, checked this very moment; null when there is none that is good. Then
    /// `problem` says why that is not known, if it is not.
    std::shared_ptr<const OwnedFd> folder(std::string& problem) const;
    /// What that gave last, unchecked; null before.
    std::shared_ptr<const OwnedFd> lastFolder() const;
    Connection connectFile(int folder, const std::string& file,
                           std::optional<Deadline> deadline) const;
    /// Removes what dead owners left, so that it does not add up. Under the takers' lock.
    void removeDead(int folder) const;

    RuntimeFolder runtimeFolder_;
    std::string path_;
    mutable Mutex mutex_;
    mutable std::shared_ptr<const OwnedFd> folder_ CORVID_GUARDED_BY(mutex_);
    std::vector<std::weak_ptr<NameHolder>> holders_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
