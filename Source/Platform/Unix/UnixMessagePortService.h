#pragma once

#include "Platform/Interfaces/MessagePortService.h"
#include "Platform/Unix/PortFolder.h"

#include <atomic>
#include <cstdint>

namespace corvid {

/// Message ports on Unix domain sockets: one connection a message, one queue's thread for all its
/// ports. The queues given to it come from UnixDispatch.
/// docs/message-port-protocol.md describes the bytes, docs/threat-model.md who can reach what.
class UnixMessagePortService final : public MessagePortService {
public:
    /// Ports in the folder `ports` of `runtimeFolder`.
    explicit UnixMessagePortService(RuntimeFolder runtimeFolder = RuntimeFolder::ofThisUser());

    /// Where the names are. Its keepNames() looks after those of the local ports.
    PortFolder& portFolder() { return folder_; }

    MessagePortRef createRemote(std::string_view name) override;
    PortPresence presenceOf(std::string_view name) override;
    SendStatus sendRequest(MessagePort& remote, std::int32_t messageID, ByteView data,
                           std::chrono::milliseconds sendTimeout,
                           std::chrono::milliseconds receiveTimeout,
                           std::optional<std::string_view> replyMode,
                           std::optional<Bytes>* reply) override;
    MessagePortRef createLocal(std::string_view name, MessagePortCallback callback) override;
    void setDispatchQueue(MessagePort& local, DispatchQueue& queue) override;
    void invalidate(MessagePort& port) override;

private:
    PortFolder folder_;
    std::atomic<std::uint64_t> connects_ = 0; ///< begun so far
    std::atomic<std::uint64_t> numbers_ = 0;  ///< of requests, given so far
};

} // namespace corvid
