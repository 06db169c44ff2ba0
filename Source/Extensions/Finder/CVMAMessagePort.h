#pragma once

#include "Core/Archive/Menu.h"
#include "Core/Base/Bytes.h"
#include "Core/Base/URL.h"
#include "Extensions/Finder/CVMABadgeID.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Platform/Interfaces/Dispatch.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// Every exchange with the host application. Static operations only, without state; each runs on
/// the caller's thread and blocks it for its send, about two seconds at worst (one to send, one to
/// wait for a reply). Any thread.
///
/// Failures are logged and replaced by fallbacks; no error reaches a caller. A missing shared
/// reporting service is fatal.
class CVMAMessagePort {
public:
    CVMAMessagePort() = delete;

    /// The serial queue on which callbacks of server ports run, made at the first call.
    static DispatchQueue& messagePortQueue();

    /// Sends one message to the port called `portName`, which is looked up afresh. With
    /// `replyModeRequired` it waits for the reply, and `serverResponse` takes it over when one
    /// comes; else, and on failure, `serverResponse` stays as it is.
    static void dispatchMessage(const std::string& portName, CVMAMessageID messageID,
                                bool replyModeRequired, ByteView dataToSend,
                                std::optional<Bytes>& serverResponse);

    /// Sends the same message to each port in order; a failure does not stop the rest. All share
    /// the one slot: a later reply overwrites an earlier one, a later failure does not.
    static void dispatchMessage(const std::vector<std::string>& portNames, CVMAMessageID messageID,
                                bool replyModeRequired, ByteView dataToSend,
                                std::optional<Bytes>& serverResponse);

    /// The menu entries that the host offers for the items, or for their parent folder, in the
    /// host's order; empty when it gives no usable answer.
    static std::vector<std::shared_ptr<MenuItem>>
    requestActionsForItems(const std::vector<URL>& urls, bool operatingOnParent);

    /// The badge of one item; `cloud` when the host gives no usable answer. A string that is no
    /// badge's raw value is fatal: both sides are built to the same list.
    static CVMABadgeID requestBadgeIDs(const URL& url);

    /// Asks the host to run a menu entry on items.
    static void perform(const std::shared_ptr<MenuItem>& action, const std::vector<URL>& paths);

    /// Announces (`registering`) or withdraws this instance's server port.
    /// (`register` alone is a reserved word.)
    static void registerPort(const std::string& portId, bool registering);

    /// Tells the host that a folder is shown (`add`) or no longer shown.
    static void updatePathCache(const URL& path, bool add);

    /// Sends one badge for one item to each of the named ports.
    static void provide(const std::vector<std::string>& portIds, CVMABadgeID badgeID,
                        const URL& path);

    /// Opens a server port whose callback runs on messagePortQueue(). The caller owns it; null
    /// when the name cannot be had.
    static MessagePortRef createServerPort(const std::string& portName,
                                           MessagePortCallback callback);

    /// Stops delivery to a server port and frees its name.
    static void removeServerPort(const MessagePortRef& port);
};

} // namespace corvid
