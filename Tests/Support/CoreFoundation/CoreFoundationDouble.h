#pragma once

#include "Platform/Unix/RuntimeFolder.h"

namespace corvid::test {

/// Where the double of Core Foundation looks for ports and makes them, until the next call. Without
/// a call it is the user's own folder, so that a test can talk to any host.
void setCoreFoundationFolder(const RuntimeFolder& folder);

/// How many objects of the double have not been released. Any thread.
long liveCoreFoundationObjects();

} // namespace corvid::test
