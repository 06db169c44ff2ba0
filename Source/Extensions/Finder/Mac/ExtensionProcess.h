#pragma once

namespace corvid {

/// Wires the extension's process: at the first call makes the platform's objects and the reporting
/// service, installs them in the few slots that the layers below look into, and sees to it that no
/// end of the process loses a log line. They live as long as the process does. Any thread.
void wireExtensionProcess();

} // namespace corvid
