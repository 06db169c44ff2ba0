#pragma once

#include "Core/Base/Bytes.h"
#include "Extensions/Finder/CVMABadgeDelegate.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <cstdint>
#include <optional>
#include <string>

namespace corvid {

/// Owns the server port on which the host application pushes badges, decodes each push and hands
/// it to the delegate.
class CVMABadgeHandler {
public:
    /// Sets the delegate, then opens the port called `portId`: nothing can arrive before there is
    /// somebody to take it. A port that cannot be opened leaves the handler alive but deaf.
    CVMABadgeHandler(const std::string& portId, CVMABadgeDelegate& badgeDelegate);

    /// Invalidates the port: no push is delivered afterwards. The delegate stays as it is.
    ~CVMABadgeHandler();

    CVMABadgeHandler(const CVMABadgeHandler&) = delete;
    CVMABadgeHandler& operator=(const CVMABadgeHandler&) = delete;

    /// A visit to the one delegate of the process, which all handlers share and hold weakly; to
    /// nobody when there is none, when it has gone, and from the moment that its owner lets it go.
    /// Any thread; for the length of one call, since the delegate's end waits for it.
    static DelegateGate::Visit delegate();
    static void setDelegate(CVMABadgeDelegate& delegate);

    /// Decodes one push and hands it to the delegate. A message that is no push of a badge for a
    /// URL is dropped without a word, and so is every message while there is no delegate; for a
    /// delegate, a string that is no badge's raw value is fatal.
    static void processProvideBadgeMessage(ByteView data);

private:
    static std::optional<Bytes> receive(MessagePort& port, std::int32_t messageID,
                                        std::optional<ByteView> data);

    MessagePortRef port_;
};

} // namespace corvid
