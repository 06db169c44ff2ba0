#pragma once

#include "Platform/Unix/RuntimeFolder.h"

#include <optional>
#include <string>

namespace corvid::test {

/// Where the double of Core Foundation looks for ports and makes them, until the next call. Without
/// a call it is the user's own folder, so that a test can talk to any host.
void setCoreFoundationFolder(const RuntimeFolder& folder);

/// How many objects of the double have not been released. Any thread.
long liveCoreFoundationObjects();

/// How a request was sent; the times in seconds, as Core Foundation is given them.
struct CoreFoundationRequest {
    double sendTimeout = 0;
    double receiveTimeout = 0;
    std::optional<std::string> replyMode;
};
/// The request that was sent last since setCoreFoundationFolder(). Any thread.
CoreFoundationRequest lastCoreFoundationRequest();

} // namespace corvid::test
