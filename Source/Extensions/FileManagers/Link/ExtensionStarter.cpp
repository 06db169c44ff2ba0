#include "Extensions/FileManagers/Link/ExtensionStarter.h"

#include "Core/Base/Mutex.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

// glibc 2.36 declares its functions without C linkage.
extern "C" {
#include <sys/pidfd.h>
}

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
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

std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentNow() {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        all.emplace_back(*entry);
    }
    return all;
}

void awaitReading(int epoll, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
}

} // namespace

/// What the thread that starts the program needs, which may outlive the starter.
struct ExtensionStarter::Spawning {
    std::vector<std::string> words;       ///< the program and its arguments
    std::vector<std::string> environment; ///< the owner may change its own meanwhile
    OwnedFd reports;                      ///< the program's end of the pipe
    Mutex mutex;
    pid_t child CORVID_GUARDED_BY(mutex) = 0;

    /// The thread: starts the program, and says in the pipe when it cannot be started.
    void run() {
        const Spawn spawn(reports.get());
        pid_t started = 0;
        const int error =
            ::posix_spawn(&started, words.front().c_str(), &spawn.actions, &spawn.attributes,
                          pointersTo(words).data(), pointersTo(environment).data());
        if (error == 0) {
            const MutexLock lock(mutex);
            child = started;
        } else {
            const std::string problem =
                words.front() + " could not be started: " + std::strerror(error) + ".";
            [[maybe_unused]] const ssize_t written =
                ::write(reports.get(), problem.data(), problem.size());
        }
        // Last: the other end takes it that the process is known by then.
        reports.reset();
    }
};

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
    OwnedFd events(::epoll_create1(EPOLL_CLOEXEC));
    if (!writing || !events) {
        problem = std::string("No pipe could be made: ") + std::strerror(errno) + ".";
        return std::nullopt;
    }
    awaitReading(events.get(), reading.get());

    auto spawning = std::make_shared<Spawning>();
    spawning->words.push_back(program);
    spawning->words.insert(spawning->words.end(), arguments.begin(), arguments.end());
    spawning->words.emplace_back("--background");
    spawning->words.push_back(std::to_string(kReportFd));
    spawning->environment = environmentNow();
    spawning->reports = std::move(writing);

    // The owner's signals are not for this thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread([spawning] { spawning->run(); }).detach();
    } catch (const std::system_error& error) {
        problem = program +
                  " could not be started: no thread could be made: " + error.code().message() + ".";
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!problem.empty()) {
        return std::nullopt;
    }
    return ExtensionStarter(std::move(events), std::move(reading), std::move(spawning));
}

ExtensionStarter::ExtensionStarter(OwnedFd events, OwnedFd reports,
                                   std::shared_ptr<Spawning> spawning)
    : events_(std::move(events)), reports_(std::move(reports)), spawning_(std::move(spawning)) {}

ExtensionStarter::~ExtensionStarter() {
    reap();
}

ExtensionStarter::ExtensionStarter(ExtensionStarter&& other) noexcept
    : events_(std::move(other.events_)), reports_(std::move(other.reports_)),
      ending_(std::move(other.ending_)), spawning_(std::move(other.spawning_)),
      child_(std::exchange(other.child_, 0)), hasHungUp_(other.hasHungUp_),
      text_(std::move(other.text_)) {}

ExtensionStarter& ExtensionStarter::operator=(ExtensionStarter&& other) noexcept {
    std::swap(events_, other.events_);
    std::swap(reports_, other.reports_);
    std::swap(ending_, other.ending_);
    std::swap(spawning_, other.spawning_);
    std::swap(child_, other.child_);
    std::swap(hasHungUp_, other.hasHungUp_);
    std::swap(text_, other.text_);
    return *this;
}

ExtensionStarter::State ExtensionStarter::poll() {
    if (!hasHungUp_) {
        readReport();
    }
    if (!hasHungUp_) {
        return State::starting;
    }
    reap();
    if (text_ == "ready") {
        return State::ready;
    }
    if (text_.empty()) {
        text_ = "The extension ended without saying why.";
    }
    return State::failed;
}

void ExtensionStarter::readReport() {
    std::array<char, 512> buffer{};
    while (true) {
        const ssize_t count = ::read(reports_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno == EAGAIN) {
            return;
        }
        if (count <= 0) {
            break;
        }
        if (text_.size() < kMaxReport) {
            text_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
    hasHungUp_ = true;
    reports_.reset();
    const MutexLock lock(spawning_->mutex);
    child_ = std::exchange(spawning_->child, 0);
}

/// Takes the process that was started off the system's list when it has ended, which it does at
/// once: it leaves one of its own behind. Not before the pipe is closed: until then its number must
/// be nobody else's, for end().
void ExtensionStarter::reap() {
    if (child_ != 0 && ::waitpid(child_, nullptr, WNOHANG) != 0) {
        child_ = 0;
        ending_.reset();
    }
    if (child_ != 0 && !ending_) {
        ending_ = OwnedFd(::pidfd_open(child_, 0));
        awaitReading(events_.get(), ending_.get());
    }
}

void ExtensionStarter::end() {
    pid_t started = child_;
    if (!hasHungUp_) {
        const MutexLock lock(spawning_->mutex);
        started = spawning_->child;
    }
    if (started != 0) {
        ::kill(-started, SIGKILL);
    }
}

} // namespace corvid::link
