#include "Tools/corvid-host/ChildProcess.h"

#include "Platform/Unix/Deadline.h"
#include "Platform/Unix/OwnedFd.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

// glibc 2.36 declares its functions without C linkage.
extern "C" {
#include <sys/pidfd.h>
}

extern char** environ;

namespace corvid {

namespace {

/// How long a killed program is waited for.
constexpr std::chrono::milliseconds kLongestDeath(500);

/// How often the end of a program is looked for when there is no descriptor to wait with.
constexpr std::chrono::nanoseconds kPauseWithoutDescriptor(20'000'000);

/// Starts `command` with `input` as its standard input and its output thrown away: a clipboard
/// program stays behind to serve the text, and must not hold on to this one's output. It gets a
/// process group of its own, so that it can be killed with all that it has started.
/// An error number, 0 when it was started.
int spawn(const std::vector<std::string>& command, int input, pid_t& child) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) {
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    // Signals that this program waits for are blocked in it, not in its children.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);

    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str())); // as exec(3) has it
    }
    arguments.push_back(nullptr);
    const int error =
        posix_spawn(&child, command[0].c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

std::string notStarted(const std::string& program, int error) {
    return fmt::format("{} was not started: {}", program, std::strerror(error));
}

/// Sends the rest of `input` as far as the socket takes it now. False when there is no more to
/// send.
bool sendMore(int socket, std::string_view& input) {
    while (!input.empty()) {
        const ssize_t count = send(socket, input.data(), input.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            input.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            return true;
        } else if (count >= 0 || errno != EINTR) {
            break; // the program takes no more
        }
    }
    shutdown(socket, SHUT_WR);
    return false;
}

/// Waits for the end of `child`, and gives it `input` meanwhile; the status as waitpid() has it,
/// nothing when `deadline` has passed before.
std::optional<int> waitFor(pid_t child, int socket, std::string_view input,
                           const Deadline& deadline) {
    const OwnedFd process(pidfd_open(child, 0));
    bool isSending = true;
    while (true) {
        isSending = isSending && sendMore(socket, input);
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            return status;
        }
        if (deadline.passed()) {
            return std::nullopt;
        }
        std::array<pollfd, 2> sources{
            {{process.get(), POLLIN, 0}, {isSending ? socket : -1, POLLOUT, 0}}};
        const timespec left =
            process ? deadline.timespecLeft() : timespec{0, kPauseWithoutDescriptor.count()};
        ppoll(sources.data(), sources.size(), &left, nullptr);
    }
}

} // namespace

std::optional<std::string> runCommand(const std::vector<std::string>& command,
                                      const std::string& input, std::chrono::milliseconds longest) {
    // A socket rather than a pipe: a program that reads nothing must not end this one by SIGPIPE.
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return notStarted(command[0], errno);
    }
    pid_t child = 0;
    const OwnedFd ours(ends[0]);
    OwnedFd theirs(ends[1]);
    const Deadline deadline(longest);
    const int error = spawn(command, theirs.get(), child);
    theirs.reset();
    if (error != 0) {
        return notStarted(command[0], error);
    }
    const std::optional<int> status = waitFor(child, ours.get(), input, deadline);
    if (!status) {
        kill(-child, SIGKILL);
        // Killed, it is gone at once, unless a disk holds it in the kernel.
        waitFor(child, ours.get(), {}, Deadline(kLongestDeath));
        return fmt::format("{} did not end within {} ms and was killed; see whether it works when "
                           "it is started by hand",
                           command[0], longest.count());
    }
    if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) {
        return fmt::format("{} failed with status {}", command[0],
                           WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status));
    }
    return std::nullopt;
}

std::optional<std::string> BackgroundPrograms::start(const std::vector<std::string>& command) {
    std::erase_if(children_, [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; });
    if (children_.size() >= kMost) {
        return fmt::format("{} was not started: {} programs that this host has started are open "
                           "still; close some of them",
                           command[0], children_.size());
    }
    pid_t child = 0;
    if (const int error = spawn(command, -1, child); error != 0) {
        return notStarted(command[0], error);
    }
    children_.push_back(child);
    return std::nullopt;
}

} // namespace corvid
