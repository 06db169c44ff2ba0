#pragma once

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvid {

/// A process that the test starts, talks to by pipes, and waits for. One thread.
class ChildProcess {
public:
    /// Runs `arguments[0]`, a path, in this process's environment with `environment` laid over
    /// it. A failure to start is a failure of the test.
    explicit ChildProcess(std::vector<std::string> arguments,
                          const std::map<std::string, std::string>& environment = {});
    /// Kills it, if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t identifier() const { return identifier_; }
    /// The next line of its standard output; nothing at the end.
    std::optional<std::string> readLine();
    /// What is left of its standard error, up to the end.
    std::string readErrors();
    /// Sends `line` and a newline to its standard input.
    void goOn(const std::string& line = {});
    void signal(int number);
    /// Waits for its end and gives the status as waitpid() does.
    int wait();

private:
    pid_t identifier_ = -1;
    int input_ = -1;
    int output_ = -1;
    int errors_ = -1;
    std::string unread_;
};

} // namespace corvid
