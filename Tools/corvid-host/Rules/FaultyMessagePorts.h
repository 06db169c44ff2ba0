#pragma once

#include "Platform/Interfaces/MessagePortService.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Tools/corvid-host/Rules/Rules.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

namespace corvid {

/// Message ports that answer wrongly on demand: sends are those of the system, but what arrives at
/// a local port is answered by hand, so that every fault of Rules can be had on the wire itself.
/// A message without a fault is answered as by the real ones; one with a fault holds up no other.
/// Each message with a fault takes a thread while the fault lasts; beyond kMostFaults at a time, a
/// message with a fault gets no answer, its connection closed.
class FaultyMessagePorts final : public MessagePortService {
public:
    static constexpr std::size_t kMostFaults = 256;

    /// What goes wrong with a message that has arrived; nothing for the most. Called for every
    /// message, in the order of arrival, on a thread of the port.
    using FaultOf =
        std::function<std::optional<Fault>(std::int32_t messageID, std::optional<ByteView> data)>;

    explicit FaultyMessagePorts(FaultOf faultOf) : faultOf_(std::move(faultOf)) {}

    PortFolder& portFolder() { return real_.portFolder(); }

    MessagePortRef createRemote(std::string_view name) override;
    PortPresence presenceOf(std::string_view name) override;
    SendStatus sendRequest(MessagePort& remote, std::int32_t messageID, ByteView data,
                           std::chrono::milliseconds sendTimeout,
                           std::chrono::milliseconds receiveTimeout,
                           std::optional<std::string_view> replyMode,
                           std::optional<Bytes>* reply) override;
    MessagePortRef createLocal(std::string_view name, MessagePortCallback callback) override;
    void setDispatchQueue(MessagePort& local, DispatchQueue& queue) override;
    /// As the interface has it, but never on the port's queue.
    void invalidate(MessagePort& port) override;

private:
    class LocalPort;

    FaultOf faultOf_;
    UnixMessagePortService real_;
};

} // namespace corvid
