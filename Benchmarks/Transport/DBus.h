#pragma once

#include "Core/Base/Bytes.h"

#include <memory>

namespace corvid::bench {

/// A badge request over a D-Bus daemon of its own: what most programs of a Linux desktop would
/// use. Starts the daemon and a service, and ends both.
class DBus {
public:
    /// Null, said on standard error, where there is no daemon or the library was not there when
    /// this was built.
    static std::unique_ptr<DBus> start();
    virtual ~DBus() = default;

    /// Sends `data` and waits for the badge.
    virtual void request(const Bytes& data) = 0;
};

} // namespace corvid::bench
