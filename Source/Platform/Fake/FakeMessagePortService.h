#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Fake/CallLog.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// Message ports within one process. Names that the test serves are answered by its functions;
/// ports that the code under test opens can be sent to by it and by the test. Any thread.
///
/// Every call is one line of the call log:
///
///     createRemote NAME                   and " -> absent" when there is no such port
///     presenceOf NAME                     and " -> gone" or " -> unknown"
///     sendRequest NAME id=4 bytes=310 send=1000ms receive=1000ms replyMode=NAME.replymode
///                                         (one line; "replyMode=none" without one, "bytes=none"
///                                         without a byte buffer)
///     releaseRemote NAME                  the last reference to a remote port was dropped
///     createLocal NAME                    and " -> failed" when the name cannot be had
///     setDispatchQueue NAME QUEUE-LABEL
///     invalidate NAME
///     releaseLocal NAME                   the owner's reference to a local port was dropped
class FakeMessagePortService final : public MessagePortService {
public:
    explicit FakeMessagePortService(CallLog& calls);
    ~FakeMessagePortService() override;

    /// What a served name does with a request.
    struct Answer {
        SendStatus status = SendStatus::success;
        std::optional<Bytes> reply; ///< given to who wants a reply, when the status is success
    };
    using Server = std::function<Answer(std::int32_t messageID, std::optional<ByteView> data)>;
    /// Answers requests for `name` with `server`, on the sender's thread, until stopServing().
    void serve(std::string name, Server server);
    /// Its name is gone from then on.
    void stopServing(std::string_view name);

    /// A request that the code under test sent, to whatever name.
    struct Sent {
        std::string name;
        std::int32_t messageID = 0;
        Bytes data;
        bool wantsReply = false;
    };
    std::vector<Sent> sent() const;

    /// While `problem` is not empty there are no remote ports, and nothing is known of any port:
    /// as when a process has no descriptors left.
    void hideRemotes(std::string problem);

    /// Makes the next call of createLocal() fail.
    void failNextCreateLocal();

    /// The names of the local ports that are open, sorted.
    std::vector<std::string> localNames() const;

    /// Sends to the local port `name` as a peer would, without a line in the log, and waits until
    /// its callback has run: the reply. Nothing when there was none, or no such port with a queue.
    /// Not on the port's queue.
    std::optional<Bytes> deliver(std::string_view name, std::int32_t messageID,
                                 std::optional<ByteView> data);

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
    class RemotePort;
    class LocalPort;
    /// Shared with the ports, which may outlive the service.
    struct State;

    std::shared_ptr<State> state_;
};

} // namespace corvid
