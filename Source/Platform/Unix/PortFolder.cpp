#include "Platform/Unix/PortFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace corvid {

namespace {

constexpr std::size_t kMaxNameBytes = 255;
// A file name holds 255 bytes on every file system in use, and one is needed for the dot of the
// file that holds the name behind a hash.
constexpr std::size_t kMaxFileNameBytes = 254;
constexpr std::size_t kHashedHeadBytes = 200;

// Connections that may wait for a server that is busy or hung; the next one waits at its sender.
constexpr int kBacklog = 64;

bool isUnreserved(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '_' || byte == '~';
}

std::string escaped(std::string_view name) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    text.reserve(name.size());
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        // Names that begin with a dot are the folder's own.
        if (isUnreserved(byte) && !(text.empty() && byte == '.')) {
            text += character;
        } else {
            text += '%';
            text += kDigits[byte >> 4U];
            text += kDigits[byte & 15U];
        }
    }
    return text;
}

std::optional<std::string> unescaped(std::string_view text) {
    const auto digit = [](char character) {
        if (character >= '0' && character <= '9') {
            return character - '0';
        }
        return character >= 'A' && character <= 'F' ? character - 'A' + 10 : -1;
    };
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            name += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? digit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? digit(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        name += static_cast<char>(high * 16 + low);
        i += 2;
    }
    // Exactly one file name stands for a name.
    return escaped(name) == text ? std::optional(name) : std::nullopt;
}

// FNV-1a, 64 bits. http://www.isthe.com/chongo/tech/comp/fnv/
std::string hashText(std::string_view name) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char character : name) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 1099511628211U;
    }
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[(hash >> shift) & 15U];
    }
    return text;
}

// '=' is always escaped in a name, so it marks what is not one.
bool isHashed(std::string_view file) {
    return file.find('=') != std::string_view::npos;
}

std::string nameFileOf(const std::string& file) {
    return "." + file;
}

std::optional<std::string> readSmallFile(int folder, const std::string& file) {
    const OwnedFd fd(openat(folder, file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::array<char, kMaxNameBytes + 1> buffer{};
    const ssize_t size = fd ? read(fd.get(), buffer.data(), buffer.size()) : -1;
    if (size < 0) {
        return std::nullopt;
    }
    return std::string(buffer.data(), static_cast<std::size_t>(size));
}

bool writeSmallFile(int folder, const std::string& file, std::string_view text) {
    const OwnedFd fd(openat(folder, file.c_str(),
                            O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                            0600));
    return fd && write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Whether `error`, of a call that looked for a file or a process, says that there is none. Any
// other says nothing about that.
bool isAbsence(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ECONNREFUSED ||
           error == EPROTOTYPE;
}

PortFolder::Connection absent() {
    return {};
}

// For a call of the system that failed with `error`.
PortFolder::Connection failed(const std::string& path, int error) {
    PortFolder::Connection connection;
    if (!isAbsence(error)) {
        connection.result = PortFolder::ConnectResult::failed;
        connection.problem = path + ": " + std::strerror(error);
    }
    connection.isDead = error == ECONNREFUSED;
    return connection;
}

sockaddr_un addressOf(std::string_view path) {
    sockaddr_un address;
    address.sun_family = AF_UNIX;
    path = path.substr(0, sizeof address.sun_path - 1);
    *std::copy(path.begin(), path.end(), address.sun_path) = '\0';
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

std::string pathOfDescriptor(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

// Waits in connect() itself: poll() does not report room in a listener's queue.
int connectWithin(int fd, const sockaddr_un& address, const Deadline& deadline) {
    int nonBlocking = 0;
    ioctl(fd, FIONBIO, &nonBlocking);
    int result = -1;
    do {
        const timeval timeout = deadline.timevalLeft();
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        result = ::connect(fd, generic(address), sizeof address);
    } while (result != 0 && errno == EINTR && !deadline.passed());
    if (result != 0 && errno == EINTR) {
        errno = EAGAIN;
    }
    const int error = errno;
    nonBlocking = 1;
    ioctl(fd, FIONBIO, &nonBlocking);
    errno = error;
    return result;
}

// Nothing when they cannot be read: errno says why.
std::optional<std::vector<std::string>> filesIn(int folder) {
    struct Closer {
        void operator()(DIR* entries) const { closedir(entries); }
    };
    const int descriptor = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, Closer> entries(descriptor < 0 ? nullptr : fdopendir(descriptor));
    if (entries == nullptr) {
        return std::nullopt;
    }
    std::vector<std::string> files;
    errno = 0;
    while (const dirent* const entry = readdir(entries.get())) {
        const std::string_view file = static_cast<const char*>(entry->d_name);
        if (file != "." && file != "..") {
            files.emplace_back(file);
        }
    }
    return errno == 0 ? std::optional(std::move(files)) : std::nullopt;
}

} // namespace

PortFolder::PortFolder(RuntimeFolder runtimeFolder)
    : runtimeFolder_(std::move(runtimeFolder)), path_(runtimeFolder_.pathOf("ports")) {}

std::string PortFolder::fileName(std::string_view name) {
    std::string text = escaped(name);
    if (text.size() > kMaxFileNameBytes) {
        text = text.substr(0, kHashedHeadBytes) + "=" + hashText(name);
    }
    return text;
}

std::shared_ptr<const OwnedFd> PortFolder::lastFolder() const {
    const MutexLock lock(mutex_);
    return folder_;
}

std::shared_ptr<const OwnedFd> PortFolder::folder(std::string& problem) const {
    const MutexLock lock(mutex_);
    if (folder_ == nullptr || !runtimeFolder_.isStillGood(folder_->get())) {
        folder_ = nullptr;
        auto opened = runtimeFolder_.openFolder("ports", RuntimeFolder::IfMissing::fail);
        if (opened.fd) {
            folder_ = std::make_shared<const OwnedFd>(std::move(opened.fd));
        } else if (opened.isUnknown) {
            problem = std::move(opened.problem);
        }
    }
    return folder_;
}

PortFolder::Connection PortFolder::connectFile(int folder, const std::string& file,
                                               std::optional<Deadline> deadline) const {
    std::string socketPath;
    socketPath.reserve(path_.size() + 1 + file.size());
    socketPath.append(path_).append(1, '/').append(file);
    OwnedFd byDescriptor;
    if (socketPath.size() >= sizeof sockaddr_un{}.sun_path) {
        byDescriptor = OwnedFd(openat(folder, file.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!byDescriptor) {
            return failed(socketPath, errno);
        }
        socketPath = pathOfDescriptor(byDescriptor.get());
    }
    const sockaddr_un address = addressOf(socketPath);

    Connection connection;
    connection.fd = OwnedFd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!connection.fd) {
        return failed(socketPath, errno);
    }
    int result = ::connect(connection.fd.get(), generic(address), sizeof address);
    if (result != 0 && errno == EAGAIN && deadline) {
        result = connectWithin(connection.fd.get(), address, *deadline);
    }
    if (result != 0 && errno == EAGAIN) {
        connection.result = ConnectResult::timedOut;
        connection.fd.reset();
        return connection;
    }
    if (result != 0) {
        // The file has been opened: what is missing is /proc.
        return failed(socketPath, errno == ENOENT && byDescriptor ? ENOSYS : errno);
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        peer.uid != runtimeFolder_.user()) {
        return absent();
    }
    connection.result = ConnectResult::connected;
    connection.process = peer.pid;
    return connection;
}

PortFolder::Connection PortFolder::connect(std::string_view name,
                                           std::optional<Deadline> deadline) const {
    if (name.empty() || name.size() > kMaxNameBytes) {
        return absent();
    }
    const std::string file = fileName(name);
    // The socket of a name with the same hash is not that of `name`.
    const auto connectIn = [&](int folder) {
        if (isHashed(file)) {
            const auto owner = readSmallFile(folder, nameFileOf(file));
            if (owner != name) {
                return owner ? absent() : failed(path_ + "/" + nameFileOf(file), errno);
            }
        }
        return connectFile(folder, file, deadline);
    };
    // The folder of last time is looked at anew while the process on the other side wakes up:
    // nothing has been sent by then.
    if (const auto last = lastFolder()) {
        Connection connection = connectIn(last->get());
        if (runtimeFolder_.isStillGood(last->get())) {
            return connection;
        }
    }
    Connection connection;
    if (const auto opened = folder(connection.problem)) {
        return connectIn(opened->get());
    }
    connection.result = connection.problem.empty() ? ConnectResult::absent : ConnectResult::failed;
    return connection;
}

std::optional<PortFolder::Listener> PortFolder::take(std::string_view name, std::string* problem) {
    const auto refuse = [&](const std::string& why) -> std::optional<Listener> {
        if (problem != nullptr) {
            *problem = why;
        }
        return std::nullopt;
    };
    if (name.empty() || name.size() > kMaxNameBytes) {
        return refuse("a port name has 1 to 255 bytes, not " + std::to_string(name.size()));
    }
    auto opened = runtimeFolder_.openFolder("ports", RuntimeFolder::IfMissing::create);
    if (!opened.fd) {
        return refuse(opened.problem);
    }
    const int folder = opened.fd.get();
    if (!RuntimeFolder::lock(folder)) {
        return refuse(path() +
                      ": another process has held it for a second; end the one that hangs");
    }
    removeDead(folder);
    const std::string file = fileName(name);
    if (faccessat(folder, file.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        return refuse("the port " + std::string(name) + " is served by a live process");
    }

    Listener listener;
    listener.file = file;
    listener.fd =
        ForkClosedFd(OwnedFd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)));
    struct stat status{};
    // Bound under another name and then renamed, so that the name is never there without somebody
    // listening, and may be longer than a socket's path.
    const std::string temporary = "=" + std::to_string(getpid());
    const sockaddr_un address = addressOf(pathOfDescriptor(folder) + "/" + temporary);
    const bool made = listener.fd &&
                      bind(listener.fd.get(), generic(address), sizeof address) == 0 &&
                      fchmodat(folder, temporary.c_str(), 0600, 0) == 0 &&
                      fstatat(folder, temporary.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                      listen(listener.fd.get(), kBacklog) == 0 &&
                      (!isHashed(file) || writeSmallFile(folder, nameFileOf(file), name)) &&
                      renameat(folder, temporary.c_str(), folder, file.c_str()) == 0;
    if (!made) {
        const std::string why = path() + "/" + file + ": " + std::strerror(errno);
        unlinkat(folder, temporary.c_str(), 0);
        unlinkat(folder, nameFileOf(file).c_str(), 0);
        return refuse(why);
    }
    RuntimeFolder::unlock(folder);
    listener.inode = status.st_ino;
    listener.folder = std::move(opened.fd);
    return listener;
}

int PortFolder::connectTo(int file, int socket) {
    const sockaddr_un address = addressOf(pathOfDescriptor(file));
    return ::connect(socket, generic(address), sizeof address);
}

void PortFolder::release(Listener& listener) {
    if (!listener.fd) {
        return;
    }
    // The name goes first: once the socket is closed another process may have taken it.
    struct stat status{};
    if (fstatat(listener.folder.get(), listener.file.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_ino == listener.inode) {
        unlinkat(listener.folder.get(), listener.file.c_str(), 0);
        if (isHashed(listener.file)) {
            unlinkat(listener.folder.get(), nameFileOf(listener.file).c_str(), 0);
        }
    }
    listener.fd.reset();
}

void PortFolder::removeDead(int folder) const {
    const auto files = filesIn(folder);
    if (!files) {
        return;
    }
    for (const std::string& file : *files) {
        if (file.front() == '.') {
            continue;
        }
        if (file.front() == '=' || connectFile(folder, file, std::nullopt).isDead) {
            unlinkat(folder, file.c_str(), 0);
            unlinkat(folder, nameFileOf(file).c_str(), 0);
        }
    }
}

PortFolder::Listing PortFolder::list(std::string_view prefix) const {
    Listing listing;
    // Opened anew: the folder of last time may have been moved away, and another be in its place.
    const auto opened = runtimeFolder_.openFolder("ports", RuntimeFolder::IfMissing::fail);
    if (!opened.fd) {
        if (opened.isUnknown) {
            listing.problem = opened.problem;
        }
        return listing;
    }
    const int folder = opened.fd.get();
    const auto files = filesIn(folder);
    if (!files) {
        listing.problem = path_ + ": " + std::strerror(errno);
        return listing;
    }
    for (const std::string& file : *files) {
        if (file.front() == '.' || file.front() == '=') {
            continue;
        }
        const auto name =
            isHashed(file) ? readSmallFile(folder, nameFileOf(file)) : unescaped(file);
        if (!name && isHashed(file) && !isAbsence(errno)) {
            listing.problem = path_ + "/" + nameFileOf(file) + ": " + std::strerror(errno);
        }
        if (!name || !name->starts_with(prefix)) {
            continue;
        }
        const Connection connection = connectFile(folder, file, std::nullopt);
        if (connection.result == ConnectResult::failed) {
            listing.problem = connection.problem;
        }
        struct stat status{};
        if ((connection.result != ConnectResult::connected &&
             connection.result != ConnectResult::timedOut) ||
            fstatat(folder, file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        const auto taken = std::chrono::seconds(status.st_mtim.tv_sec) +
                           std::chrono::nanoseconds(status.st_mtim.tv_nsec);
        listing.ports.push_back(
            {*name, connection.process,
             std::chrono::system_clock::time_point(
                 std::chrono::duration_cast<std::chrono::system_clock::duration>(taken))});
    }
    std::sort(listing.ports.begin(), listing.ports.end(),
              [](const LivePort& a, const LivePort& b) { return a.name < b.name; });
    return listing;
}

} // namespace corvid
