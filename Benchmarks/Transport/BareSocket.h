#pragma once

#include "Core/Base/Bytes.h"

#include <cstddef>
#include <string>

namespace corvid::bench {

/// What the message ports are measured against: the same bytes over the same kind of socket, with
/// no header, no check and no deadline. A failure ends the program.
class BareServer {
public:
    explicit BareServer(const std::string& path);
    ~BareServer();
    BareServer(const BareServer&) = delete;
    BareServer& operator=(const BareServer&) = delete;

    /// Accepts, receives `requestBytes`, sends `reply`, closes; for ever.
    [[noreturn]] void answer(std::size_t requestBytes, const Bytes& reply);
    /// Accepts, receives, closes, `count` times.
    void take(std::size_t requestBytes, std::size_t count);

private:
    std::string path_;
    int listener_;
};

/// Connects, sends `request`, receives `replyBytes` into `reply`, closes.
void bareRequest(const std::string& path, const Bytes& request, std::uint8_t* reply,
                 std::size_t replyBytes);

} // namespace corvid::bench
