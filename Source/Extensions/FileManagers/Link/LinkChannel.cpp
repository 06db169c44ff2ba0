#include "Extensions/FileManagers/Link/LinkChannel.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace corvid::link {

namespace {

constexpr int kBacklog = 64;

// A buffer that once held a large frame is not kept at that size.
constexpr std::size_t kKeptCapacity = std::size_t{128} * 1024;

void dropFront(Bytes& bytes, std::size_t& start) {
    if (start == bytes.size()) {
        bytes.clear();
        if (bytes.capacity() > kKeptCapacity) {
            bytes.shrink_to_fit();
        }
        start = 0;
    } else if (start > kKeptCapacity && start > bytes.size() / 2) {
        // What stays is moved; less of it than has gone, so that a large frame takes linear time.
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(start));
        start = 0;
    }
}

/// The address of the link's socket by way of its opened folder, so that the 107 bytes that an
/// address holds suffice wherever the folder is.
sockaddr_un addressIn(int folder) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + kSocketName;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

OwnedFd newSocket() {
    return OwnedFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

} // namespace

LinkChannel::LinkChannel(OwnedFd socket) : socket_(std::move(socket)) {
    const int flags = ::fcntl(socket_.get(), F_GETFL);
    ::fcntl(socket_.get(), F_SETFL, flags | O_NONBLOCK);
}

bool LinkChannel::receive() {
    const std::size_t before = in_.size();
    in_.resize(before + kReadSize);
    ssize_t count = 0;
    do {
        count = ::recv(socket_.get(), in_.data() + before, kReadSize, 0);
    } while (count < 0 && errno == EINTR);
    in_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return count > 0 || (count < 0 && errno == EAGAIN);
}

std::optional<Message> LinkChannel::next() {
    while (!isBroken_ && in_.size() - inStart_ >= kFrameHeaderSize) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < kFrameHeaderSize; ++i) {
            length |= std::size_t{in_[inStart_ + i]} << (8 * i);
        }
        if (length == 0 || length > maxFrameSize_) {
            isBroken_ = true;
            break;
        }
        if (in_.size() - inStart_ - kFrameHeaderSize < length) {
            break;
        }
        Decoded decoded = decodeFrame(ByteView(in_).subspan(inStart_ + kFrameHeaderSize, length));
        inStart_ += kFrameHeaderSize + length;
        dropFront(in_, inStart_);
        switch (decoded.kind) {
        case Decoded::Kind::message:
            return std::move(decoded.message);
        case Decoded::Kind::unknownType:
            break;
        case Decoded::Kind::malformed:
            isBroken_ = true;
            break;
        }
    }
    return std::nullopt;
}

bool LinkChannel::send(const Message& message) {
    return appendFrame(out_, message);
}

bool LinkChannel::flush() {
    while (unsent() > 0) {
        const ssize_t count =
            ::send(socket_.get(), out_.data() + outStart_, unsent(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return errno == EAGAIN;
        }
        outStart_ += static_cast<std::size_t>(count);
        dropFront(out_, outStart_);
    }
    return true;
}

OwnedFd listenIn(int folder) {
    const sockaddr_un address = addressIn(folder);
    OwnedFd socket = newSocket();
    ::unlinkat(folder, kSocketName, 0);
    if (!socket || ::bind(socket.get(), generic(address), sizeof address) != 0 ||
        ::fchmodat(folder, kSocketName, S_IRUSR | S_IWUSR, 0) != 0 ||
        ::listen(socket.get(), kBacklog) != 0) {
        return {};
    }
    return socket;
}

OwnedFd connectIn(int folder) {
    const sockaddr_un address = addressIn(folder);
    OwnedFd socket = newSocket();
    if (!socket || ::connect(socket.get(), generic(address), sizeof address) != 0) {
        return {};
    }
    if (!isOwnPeer(socket.get())) {
        socket.reset();
        errno = EPERM;
    }
    return socket;
}

bool isOwnPeer(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           peer.uid == ::geteuid();
}

} // namespace corvid::link
