#pragma once

#include <chrono>

namespace corvid {

/// Ends the process in time, whatever hangs in it: a thread that waits for another, a lock that
/// nobody gives back, a disk that does not answer.
///
/// When the deadline has come, the process lets go of what others wait for (see letGo()), says so
/// in one line on standard error if that can take it at once, and ends with the status that was
/// given, without destructors and without what is registered with atexit().
///
/// A thread that the kernel holds in a system call on a disk that hangs cannot be ended by anyone.
/// The process stays in the list of processes until the disk answers, and who waits for its end
/// (waitpid) waits as long; but it holds no socket, pipe or name any more and runs nothing.
class ExitDeadline {
public:
    /// All our programs end within this time, whatever hangs.
    static constexpr std::chrono::seconds kLongestEnd{5};
    /// What is given to an orderly end; the rest is for letting go and for a busy machine.
    static constexpr std::chrono::seconds kDefault{4};

    /// Makes the thread that watches the deadline; it sleeps until then. Call it once, in `main`
    /// after the last fork(). Without it, or when the system has no thread left, arm() uses
    /// SIGALRM, which a thread that hangs in the kernel may keep from being seen. fatal() arms it
    /// from then on. Further calls in one process do nothing.
    static void install() noexcept;

    /// From now on the process ends within `after`, with `exitStatus`. It cannot be undone; of
    /// several calls the first counts. To be called when the end of the program begins: by `main`
    /// when it starts to take things down, by the handler of a signal that asks for the end, and
    /// by fatal(). Any thread, and in a signal handler; keeps errno.
    static void arm(int exitStatus, std::chrono::milliseconds after = kDefault) noexcept;
    /// arm() with the status that a shell gives for a death by `signal`; for FatalSignals.
    static void armForSignal(int signal) noexcept { arm(128 + signal); }

    /// Lets go at once of what other processes wait for: all sockets (nobody is accepted any more,
    /// so that the names of ports are free and peers see the end), all pipes, standard input and
    /// output included, and all open-file-description locks. Other files stay open, since closing
    /// one may hang with its disk. The numbers of these descriptors stay taken, so that a thread
    /// that still runs gets errors and never writes to another file. For a process that is about
    /// to die. In a signal handler too; keeps errno.
    static void letGo() noexcept;
};

} // namespace corvid
