#pragma once

#include "Core/Base/Bytes.h"
#include "Extensions/FileManagers/Link/LinkMessages.h"
#include "Platform/Unix/OwnedFd.h"

#include <cstddef>
#include <optional>
#include <string>

namespace corvid::link {

/// One end of a Finder link: messages over a connected stream socket that never blocks.
/// One thread at a time; its owner waits for the socket and calls receive() and flush().
class LinkChannel {
public:
    /// Takes a connected socket and makes it non-blocking.
    explicit LinkChannel(OwnedFd socket);

    int fd() const { return socket_.get(); }

    /// A longer frame makes the channel broken; kMaxFrameSize unless told otherwise.
    void setMaxFrameSize(std::size_t size) { maxFrameSize_ = size; }

    /// Reads what is there, at most `kReadSize` bytes, so that a busy peer cannot hold the caller.
    /// False when the peer has hung up or reading failed; what came before can still be taken.
    bool receive();
    static constexpr std::size_t kReadSize = std::size_t{64} * 1024;

    /// The next whole message that has been received; nothing when there is none. Frames of an
    /// unknown type are skipped. After a malformed one there is never another, and isBroken().
    std::optional<Message> next();
    bool isBroken() const { return isBroken_; }

    /// Queues a message; flush() sends it. False when it exceeds a bound of the link.
    bool send(const Message& message);
    /// Sends what the socket takes. False when the peer is gone.
    bool flush();
    /// Bytes that are queued: wait for the socket to take more when it is not 0.
    std::size_t unsent() const { return out_.size() - outStart_; }

private:
    OwnedFd socket_;
    Bytes in_;
    std::size_t inStart_ = 0;
    Bytes out_;
    std::size_t outStart_ = 0;
    std::size_t maxFrameSize_ = kMaxFrameSize;
    bool isBroken_ = false;
};

/// Listens at the link's place in `folder`, the opened runtime folder; only this user may connect.
/// Whatever was there is replaced: the caller is the one extension of this user. None on failure,
/// with `errno`.
OwnedFd listenIn(int folder);

/// Connects to the extension that listens in `folder` without waiting. None when nobody does, or
/// when the listener is another user's; then `errno` is EPERM.
OwnedFd connectIn(int folder);

/// Whether the process at the other end of `socket` runs as this user.
bool isOwnPeer(int socket);

} // namespace corvid::link
