#pragma once

#include "Platform/Interfaces/MessagePortService.h"

namespace corvid {

/// `CFMessagePort`. Its queues must be those of MacDispatch. A name that is not UTF-8 cannot be
/// taken, and nobody has it.
class MacMessagePortService final : public MessagePortService {
public:
    MessagePortRef createRemote(std::string_view name) override;
    /// The platform gives no reason for a remote port that is null: that counts as gone.
    PortPresence presenceOf(std::string_view name) override;
    SendStatus sendRequest(MessagePort& remote, std::int32_t messageID, ByteView data,
                           std::chrono::milliseconds sendTimeout,
                           std::chrono::milliseconds receiveTimeout,
                           std::optional<std::string_view> replyMode,
                           std::optional<Bytes>* reply) override;
    MessagePortRef createLocal(std::string_view name, MessagePortCallback callback) override;
    void setDispatchQueue(MessagePort& local, DispatchQueue& queue) override;
    void invalidate(MessagePort& port) override;
};

} // namespace corvid
