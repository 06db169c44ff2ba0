#pragma once

#include "Platform/Unix/OwnedFd.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvid::link {

/// Starts the extension's program in a session of its own, so that it outlives the front end, and
/// hears from it whether it runs. One thread; nothing here waits but for a child that has ended.
class ExtensionStarter {
public:
    /// `program` is called with `arguments` and "--background FD": it goes on in the background and
    /// writes to that descriptor how its start went: "ready", or a sentence for people.
    /// Empty when the program could not be started; then `problem` says why.
    static std::optional<ExtensionStarter> start(const std::string& program,
                                                 const std::vector<std::string>& arguments,
                                                 std::string& problem);
    ~ExtensionStarter();
    ExtensionStarter(ExtensionStarter&& other) noexcept;
    ExtensionStarter& operator=(ExtensionStarter&& other) noexcept;

    /// Becomes readable when there is something to be had by poll().
    int fd() const { return reports_.get(); }

    enum class State { starting, ready, failed };
    State poll();
    /// What it said when it failed.
    const std::string& problem() const { return text_; }

private:
    ExtensionStarter(OwnedFd reports, pid_t child);
    void reap(int options);

    OwnedFd reports_;
    pid_t child_ = 0;
    std::string text_;
};

} // namespace corvid::link
