#pragma once

namespace corvid {

/// Sees to it that what this process says holds up none of its threads. From here on a line for a
/// pipe that nobody reads, or for a terminal that is stopped, is lost; one for a socket waits a
/// second at most. Standard streams that were closed lead nowhere, lest the next file that is
/// opened takes their number and gets what is said. To be called before anything else.
///
/// Other processes that have the same pipe or terminal notice nothing.
void prepareStandardStreams();

} // namespace corvid
