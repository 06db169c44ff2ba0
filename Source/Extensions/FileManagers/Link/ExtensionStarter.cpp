#include "Extensions/FileManagers/Link/ExtensionStarter.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

extern char** environ;

namespace corvid::link {

namespace {

/// The descriptor at which the program finds its end of the pipe.
constexpr int kReportFd = 3;
constexpr std::size_t kMaxReport = 4096;

/// The attributes and file actions of one posix_spawn().
struct Spawn {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;

    explicit Spawn(int reports) {
        posix_spawn_file_actions_init(&actions);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
        }
        // A copy onto another number loses close-on-exec; the pipe is never made at this one.
        posix_spawn_file_actions_adddup2(&actions, reports, kReportFd);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                  POSIX_SPAWN_SETSID);
    }
    ~Spawn() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    Spawn(const Spawn&) = delete;
    Spawn& operator=(const Spawn&) = delete;
};

} // namespace

std::optional<ExtensionStarter> ExtensionStarter::start(const std::string& program,
                                                        const std::vector<std::string>& arguments,
                                                        std::string& problem) {
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        problem = std::string("No pipe could be made: ") + std::strerror(errno) + ".";
        return std::nullopt;
    }
    OwnedFd reading(ends[0]);
    OwnedFd writing(::fcntl(ends[1], F_DUPFD_CLOEXEC, kReportFd + 1));
    ::close(ends[1]);

    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.emplace_back("--background");
    words.push_back(std::to_string(kReportFd));
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);

    const Spawn spawn(writing.get());
    pid_t child = 0;
    const int error = ::posix_spawn(&child, program.c_str(), &spawn.actions, &spawn.attributes,
                                    pointers.data(), environ);
    if (error != 0) {
        problem = program + " could not be started: " + std::strerror(error) + ".";
        return std::nullopt;
    }
    return ExtensionStarter(std::move(reading), child);
}

ExtensionStarter::ExtensionStarter(OwnedFd reports, pid_t child)
    : reports_(std::move(reports)), child_(child) {}

ExtensionStarter::~ExtensionStarter() {
    reap(WNOHANG);
}

ExtensionStarter::ExtensionStarter(ExtensionStarter&& other) noexcept
    : reports_(std::move(other.reports_)), child_(std::exchange(other.child_, 0)),
      text_(std::move(other.text_)) {}

ExtensionStarter& ExtensionStarter::operator=(ExtensionStarter&& other) noexcept {
    std::swap(reports_, other.reports_);
    std::swap(child_, other.child_);
    std::swap(text_, other.text_);
    return *this;
}

ExtensionStarter::State ExtensionStarter::poll() {
    std::array<char, 512> buffer{};
    while (true) {
        const ssize_t count = ::read(reports_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno == EAGAIN) {
            return State::starting;
        }
        if (count <= 0) {
            break;
        }
        if (text_.size() < kMaxReport) {
            text_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
    // The child that was started leaves a process of its own behind and ends at once; its end of
    // the pipe is closed, so this does not wait.
    reap(0);
    if (text_ == "ready") {
        return State::ready;
    }
    if (text_.empty()) {
        text_ = "The extension ended without saying why.";
    }
    return State::failed;
}

void ExtensionStarter::reap(int options) {
    if (const pid_t child = std::exchange(child_, 0); child > 0) {
        ::waitpid(child, nullptr, options);
    }
}

} // namespace corvid::link
