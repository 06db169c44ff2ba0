#pragma once

namespace corvid {

/// Keeps libgit2 from waiting for ever where a file turns out to be a pipe (fifo(7)): a rule file,
/// the index, a file to be staged. libgit2 opens each by its path, blocking, with nothing to say
/// otherwise, and a look at the path beforehand would leave a moment in which it can change.
///
/// So the program has an open(2) of its own, which the libraries that it loads use too: what is
/// opened for reading is opened without blocking and looked at; a pipe is closed again and refused
/// with EINVAL. Everything else is as the system's open(). (The C library's own calls, fopen()
/// among them, do not come this way.)
///
/// It is there from the start in every program that this function is linked into; the function
/// does nothing but see to that.
void refusePipes();

} // namespace corvid
