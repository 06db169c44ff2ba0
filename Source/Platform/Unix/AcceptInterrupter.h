#pragma once

#include "Platform/Unix/OwnedFd.h"
#include "Platform/Unix/PortFolder.h"

namespace corvid {

/// Ends the wait of a thread in accept(): by a connection that says nothing and is closed at once.
/// Nothing else ends that wait and leaves the socket as it is.
class AcceptInterrupter {
public:
    /// For the socket of `listener`, which it outlives.
    explicit AcceptInterrupter(const PortFolder::Listener& listener) : listener_(listener) {}

    /// Gets what interrupt() needs. False when it cannot be had; then nobody may wait.
    bool prepare();
    /// Frees the descriptors that it takes, for something that cannot do without. It is not ready
    /// again.
    void giveUp();
    /// Forgets the socket of the listener, which has got another.
    void startAnew();
    /// Ends the wait, or has the next one end at once. Any thread, but not while prepare() runs.
    void interrupt();

private:
    const PortFolder::Listener& listener_;
    OwnedFd file_;   ///< of the socket, wherever its name has gone
    OwnedFd socket_; ///< for the one connection
    bool hasGivenUp_ = false;
};

} // namespace corvid
