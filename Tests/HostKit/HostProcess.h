#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace corvid {

/// A host application in a process of its own, whose lines of output the test reads. Killed when
/// it goes out of scope.
class HostProcess {
public:
    explicit HostProcess(const std::vector<std::string>& command) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
        std::vector<char*> arguments;
        for (const std::string& argument : command) {
            arguments.push_back(const_cast<char*>(argument.c_str()));
        }
        arguments.push_back(nullptr);
        posix_spawn(&process_, command[0].c_str(), &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        input_ = input[1];
        output_ = fdopen(output[0], "r");
    }
    ~HostProcess() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        closeInput();
        std::fclose(output_);
    }
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    pid_t process() const { return process_; }

    /// Reads up to the next line that holds `part`: that line, or all that was read, after
    /// "(ended)", when the output ends before.
    std::string waitForLine(const std::string& part) {
        std::string all = "(ended)\n";
        std::string line;
        for (int c = std::getc(output_); c != EOF; c = std::getc(output_)) {
            if (c != '\n') {
                line += static_cast<char>(c);
                continue;
            }
            if (line.find(part) != std::string::npos) {
                return line;
            }
            all += line + "\n";
            line.clear();
        }
        return all + line;
    }

    void closeInput() {
        if (input_ >= 0) {
            ::close(input_);
            input_ = -1;
        }
    }

    void signal(int number) const { kill(process_, number); }

    /// Waits for the end: the exit status, or 128 and the number of the signal.
    int wait() {
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t process_ = 0;
    int input_ = -1;
    std::FILE* output_ = nullptr;
};

} // namespace corvid
