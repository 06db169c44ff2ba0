#include "Tools/corvid-host/ChildProcess.h"

#include "Platform/Unix/OwnedFd.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace corvid {

namespace {

/// Starts `command` with `input` as its standard input and its output thrown away: a clipboard
/// program stays behind to serve the text, and must not hold on to this one's output.
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
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

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

} // namespace

std::optional<std::string> runCommand(const std::vector<std::string>& command,
                                      const std::string& input) {
    // A socket rather than a pipe: a program that reads nothing must not end this one by SIGPIPE.
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return notStarted(command[0], errno);
    }
    pid_t child = 0;
    const OwnedFd ours(ends[0]);
    OwnedFd theirs(ends[1]);
    const int error = spawn(command, theirs.get(), child);
    theirs.reset();
    for (std::size_t sent = 0; error == 0 && sent < input.size();) {
        const ssize_t count =
            send(ours.get(), input.data() + sent, input.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        sent += static_cast<std::size_t>(count);
    }
    if (error != 0) {
        return notStarted(command[0], error);
    }
    shutdown(ours.get(), SHUT_WR);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return fmt::format("{} failed with status {}", command[0],
                           WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    }
    return std::nullopt;
}

std::optional<std::string> BackgroundPrograms::start(const std::vector<std::string>& command) {
    std::erase_if(children_, [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; });
    pid_t child = 0;
    if (const int error = spawn(command, -1, child); error != 0) {
        return notStarted(command[0], error);
    }
    children_.push_back(child);
    return std::nullopt;
}

} // namespace corvid
