#pragma once

#include <string_view>

namespace corvid {

/// Stops the process because a state arose that the system treats as impossible.
///
/// Calls the alarm hook, writes "fatal: ", `text` and a newline to standard error, calls the stop
/// hook once, and aborts.
/// Adds no log line of its own. A fatal call from within the stop hook aborts at once.
/// Any thread.
[[noreturn]] void fatal(std::string_view text);

/// Called by fatal() before the process aborts; the one in `main` flushes the logs.
using StopHook = void (*)() noexcept;

/// Installs `hook` (null for none) and returns the one that was installed before.
/// Any thread; meant for the line in `main` that wires the program, and for tests.
StopHook setStopHook(StopHook hook) noexcept;

/// Likewise for the hook that fatal() calls first of all: it bounds the time that the rest may
/// take, since standard error or a disk may hang.
StopHook setAlarmHook(StopHook hook) noexcept;

} // namespace corvid
