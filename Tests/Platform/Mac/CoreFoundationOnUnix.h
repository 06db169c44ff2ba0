#pragma once

#include "Platform/Unix/RuntimeFolder.h"

namespace corvid::test {

/// Where the Core Foundation of the tests looks for ports, until the next call.
void setCoreFoundationFolder(const RuntimeFolder& folder);

} // namespace corvid::test
