#pragma once

namespace corvid {

/// How many objects of the double of Core Foundation have not been released. Any thread.
long liveCoreFoundationObjects();

} // namespace corvid
