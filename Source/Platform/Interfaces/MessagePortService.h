#pragma once

#include "Core/Base/Bytes.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace corvid {

class DispatchQueue;

/// What a message or a reply may hold.
inline constexpr std::size_t kMaxMessageBytes = std::size_t{64} << 20U;

/// A named end of a conversation, made by a MessagePortService and used with that service only:
/// a remote port (somebody else's name) or a local one (a name of this process).
/// Dropping the last reference to a remote port closes it. Dropping a local one invalidates it.
class MessagePort {
public:
    virtual ~MessagePort() = default;
    /// The name it was made with.
    virtual const std::string& name() const = 0;
};

using MessagePortRef = std::shared_ptr<MessagePort>;

/// What became of a request; the values are the platform's (`kCFMessagePortSuccess` and so on).
enum class SendStatus : std::int32_t {
    success = 0,
    sendTimeout = -1,
    receiveTimeout = -2,
    isInvalid = -3,
    transportError = -4,
    becameInvalid = -5,
};

/// Whether a process serves a name.
struct PortPresence {
    enum class State {
        served,  ///< a live process of this user has it, even if that hangs
        gone,    ///< nobody has it
        unknown, ///< it cannot be found out now; later it may
    };
    State state = State::unknown;
    std::string problem; ///< why it is unknown: names the thing and the system's reason
};

/// Answers one message that arrived at the local port `port`. `data` is absent when the message
/// carried no byte buffer; it is borrowed for the call. The result is the reply; nothing for none.
using MessagePortCallback = std::function<std::optional<Bytes>(
    MessagePort& port, std::int32_t messageID, std::optional<ByteView> data)>;

/// Named local ports with synchronous request and reply: the operations of the platform's message
/// ports (`CFMessagePort`), each under its own name without the prefix "CFMessagePort".
/// All operations may be called from any thread.
class MessagePortService {
public:
    virtual ~MessagePortService() = default;

    /// A reference to the port that a live process of this user serves as `name`, 1 to 255 bytes.
    /// Null, at once, when there is none.
    virtual MessagePortRef createRemote(std::string_view name) = 0;

    /// Whether anybody serves `name`. A remote port is null for every reason; this tells one that
    /// is gone from one that cannot be reached for want of descriptors or memory. Not one of the
    /// platform's operations. At once.
    virtual PortPresence presenceOf(std::string_view name) = 0;

    /// Sends `data`, up to kMaxMessageBytes, to `remote`. A view of no memory at all carries no
    /// byte buffer.
    ///
    /// With a `replyMode` it waits for the answer and puts it into `*reply` (when `reply` is not
    /// null); without one it returns once the receiver has taken the message, and `*reply` is left
    /// alone. `sendTimeout` and `receiveTimeout` become two deadlines at the start of the two
    /// phases; nothing that the peer does extends them. `*reply` is written on success only, and
    /// left as it is when the peer answered without data.
    virtual SendStatus sendRequest(MessagePort& remote, std::int32_t messageID, ByteView data,
                                   std::chrono::milliseconds sendTimeout,
                                   std::chrono::milliseconds receiveTimeout,
                                   std::optional<std::string_view> replyMode,
                                   std::optional<Bytes>* reply) = 0;

    /// Takes the name for this process and opens a port that will answer with `callback`; messages
    /// wait until setDispatchQueue() gives it a queue. Null when the name is taken by a live
    /// process (this one included) or cannot be made.
    virtual MessagePortRef createLocal(std::string_view name, MessagePortCallback callback) = 0;

    /// Runs every callback of `local` on `queue`, one after another, in the order of arrival.
    /// `queue` comes from the Dispatch of the same platform and outlives the port. Once a port.
    virtual void setDispatchQueue(MessagePort& local, DispatchQueue& queue) = 0;

    /// Stops delivery and frees the name. Returns when no callback of this port runs or will run;
    /// called on the port's own queue it returns at once, and no later callback starts.
    /// The second time there is only the wait: the first may have come from a callback that runs.
    virtual void invalidate(MessagePort& port) = 0;
};

} // namespace corvid
