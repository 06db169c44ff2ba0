#include "Tests/Support/ChildProcess.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid {

namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& text : strings) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!changes.contains(text.substr(0, text.find('=')))) {
            entries.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        entries.push_back(name + "=" + value);
    }
    return entries;
}

std::string readAvailable(int descriptor) {
    std::array<char, 4096> buffer{};
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments,
                           const std::map<std::string, std::string>& environment) {
    std::array<std::array<int, 2>, 3> pipes{};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (std::size_t i = 0; i < pipes.size(); ++i) {
        EXPECT_EQ(pipe2(pipes[i].data(), O_CLOEXEC), 0);
        posix_spawn_file_actions_adddup2(&actions, pipes[i][i == 0 ? 0 : 1], static_cast<int>(i));
    }
    std::vector<std::string> entries = environmentWith(environment);
    EXPECT_EQ(posix_spawn(&identifier_, arguments.front().c_str(), &actions, nullptr,
                          pointers(arguments).data(), pointers(entries).data()),
              0)
        << arguments.front();
    posix_spawn_file_actions_destroy(&actions);
    close(pipes[0][0]);
    close(pipes[1][1]);
    close(pipes[2][1]);
    input_ = pipes[0][1];
    output_ = pipes[1][0];
    errors_ = pipes[2][0];
}

ChildProcess::~ChildProcess() {
    if (identifier_ > 0) {
        signal(SIGKILL);
        wait();
    }
    close(input_);
    close(output_);
    close(errors_);
}

std::optional<std::string> ChildProcess::readLine() {
    for (;;) {
        if (const std::size_t newline = unread_.find('\n'); newline != std::string::npos) {
            const std::string line = unread_.substr(0, newline);
            unread_.erase(0, newline + 1);
            return line;
        }
        const std::string more = readAvailable(output_);
        if (more.empty()) {
            return std::nullopt;
        }
        unread_ += more;
    }
}

std::string ChildProcess::readErrors() {
    std::string all;
    for (std::string more = readAvailable(errors_); !more.empty(); more = readAvailable(errors_)) {
        all += more;
    }
    return all;
}

void ChildProcess::goOn(const std::string& line) {
    const std::string text = line + "\n";
    EXPECT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void ChildProcess::signal(int number) {
    kill(identifier_, number);
}

int ChildProcess::wait() {
    int status = -1;
    EXPECT_EQ(waitpid(identifier_, &status, 0), identifier_);
    identifier_ = -1;
    return status;
}

} // namespace corvid
