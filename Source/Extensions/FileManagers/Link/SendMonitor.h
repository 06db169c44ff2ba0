#pragma once

#include "Core/Base/Mutex.h"
#include "Extensions/FileManagers/Link/FinderModel.h"
#include "Platform/Interfaces/Clock.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace corvid::link {

/// A message-port service that passes everything on to another one and watches what becomes of the
/// sends. The controller swallows failures by design; whoever plays the file manager learns of
/// them here, without the controller knowing. Any thread.
class SendMonitor : public MessagePortService {
public:
    /// Both must outlive this.
    SendMonitor(MessagePortService& service, const Clock& clock);

    /// What became of the sends of the calling thread since its last call of this.
    static SendOutcome takeOutcome();

    struct Figures {
        std::uint64_t sent = 0;
        std::uint64_t failed = 0;
        /// Of the newest request that was answered.
        std::optional<std::chrono::microseconds> roundTrip;
        std::string lastFailure; ///< a sentence; empty when there was none
        std::chrono::steady_clock::time_point lastFailureTime;
    };
    Figures figures() const;

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
    MessagePortService& service_;
    const Clock& clock_;
    mutable Mutex mutex_;
    Figures figures_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid::link
