#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvid::link {

/// Starts the extension's program in a session of its own, so that it outlives the front end, and
/// hears from it whether it runs. One thread, and nothing here waits: a program on a disk that does
/// not answer holds up a thread that is made for the start alone.
///
/// How long the program may take is for the owner to say, who calls end() then.
class ExtensionStarter {
public:
    /// `program` is called with `arguments` and "--background FD": it goes on in the background and
    /// writes to that descriptor how its start went: "ready", or a sentence for people.
    /// Empty when no start could be tried; then `problem` says why. That the program cannot be
    /// started shows in poll().
    static std::optional<ExtensionStarter> start(const std::string& program,
                                                 const std::vector<std::string>& arguments,
                                                 std::string& problem);
    /// What was started goes on.
    ~ExtensionStarter();
    ExtensionStarter(ExtensionStarter&& other) noexcept;
    ExtensionStarter& operator=(ExtensionStarter&& other) noexcept;

    /// Becomes readable when there is something to be had by poll(), until isOver().
    int fd() const { return events_.get(); }

    enum class State { starting, ready, failed };
    State poll();
    /// What it said when it failed.
    const std::string& problem() const { return text_; }

    /// Whether nothing is left of the start: the program has closed its end of the pipe, and the
    /// process that was started has ended and was taken off the system's list. As of the last
    /// poll(); to keep this object and poll it until then leaves no process behind.
    bool isOver() const { return hasHungUp_ && child_ == 0; }
    /// Kills the process that was started and those that it has started in its session, unless
    /// isOver(). They are gone when poll() says so: one that the kernel holds up ends later.
    void end();

private:
    struct Spawning;

    ExtensionStarter(OwnedFd events, OwnedFd reports, std::shared_ptr<Spawning> spawning);
    void readReport();
    void reap();

    OwnedFd events_;  ///< an epoll instance with `reports_`, then with `ending_`
    OwnedFd reports_; ///< none after it was closed at the other end
    OwnedFd ending_;  ///< the process that was started, when it is waited for
    std::shared_ptr<Spawning> spawning_;
    pid_t child_ = 0; ///< 0 before it is known, and when it has been reaped
    bool hasHungUp_ = false;
    std::string text_;
};

} // namespace corvid::link
