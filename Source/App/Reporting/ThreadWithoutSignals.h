#pragma once

#include <functional>
#include <thread>

namespace corvid {

/// A thread on which no signal arrives but those of its own faults. For one that works with a
/// disk: the handler of another signal would find the write that it must wait for underneath it, or
/// would not run at all while the disk hangs. Throws std::system_error when the system has no
/// thread left.
std::thread threadWithoutSignals(std::function<void()> body);

} // namespace corvid
