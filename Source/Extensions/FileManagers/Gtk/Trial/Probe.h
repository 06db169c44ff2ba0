#pragma once

namespace corvid::gtk {

/// Begins to measure the pauses of the main loop, and the module's part in them, and leaves the
/// figures in the file `path`, which is mapped; Probe.cpp says which. Main thread, once.
void watchMainLoop(const char* path);

} // namespace corvid::gtk
