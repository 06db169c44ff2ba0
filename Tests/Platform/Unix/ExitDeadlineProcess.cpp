// The process that ExitDeadlineTest ends. Each argument is a step:
//
//     install          makes the thread that watches
//     fork             goes on in a child; the parent waits for it and ends as it does
//     spend            takes all the threads that the system gives this user
//     listen:PATH      listens at a socket; a thread waits in accept()
//     many             opens 2,000 descriptors first, so that what comes next has a high number
//     all              leaves two descriptors only, for what comes next
//     let-go           lets go at once
//     wait             reads a line from standard input
//     fatal            comes to a fatal state
//     last-words       has the handler of a fatal signal write a line
//     crash-together:N crashes on so many threads at once
//     lock:PATH        holds an open-file-description lock
//     say:WORD         writes a line to standard output
//     arm:STATUS:MS    arms the deadline
//     arm-at-term:STATUS:MS   arms it in the handler of SIGTERM
//     hang             waits for ever
//     hang-blocked     waits for ever with all signals blocked, in every thread
//     hang-in-lock     waits for ever with the lock of standard error
//     exit:STATUS

#include "Core/Base/Fatal.h"
#include "Platform/Unix/ExitDeadline.h"
#include "Platform/Unix/FatalSignals.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

namespace corvid {
namespace {

int statusAtTerm = 0;
std::chrono::milliseconds timeAtTerm{0};

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::_Exit(90);
}

[[noreturn]] void hang() {
    for (;;) {
        pause();
    }
}

std::pair<int, std::chrono::milliseconds> statusAndTime(const std::string& text) {
    std::size_t colon = 0;
    const int status = std::stoi(text, &colon);
    return {status, std::chrono::milliseconds(std::stoi(text.substr(colon + 1)))};
}

void goOnInChild() {
    const pid_t child = fork();
    if (child > 0) {
        int status = 0;
        waitpid(child, &status, 0);
        _exit(WEXITSTATUS(status));
    }
}

void listenAt(const std::string& path) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 8) != 0) {
        fail("listen");
    }
    std::thread([listener] { accept(listener, nullptr, nullptr); }).detach();
}

void openMany() {
    const rlimit many{4096, 4096};
    setrlimit(RLIMIT_NOFILE, &many);
    for (int i = 0; i < 2000; ++i) {
        if (open("/dev/null", O_RDONLY | O_CLOEXEC) < 0) {
            fail("open");
        }
    }
}

void lockFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    struct flock whole{};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(fd, F_OFD_SETLK, &whole) != 0) {
        fail("lock");
    }
}

/// Takes the descriptors that are left, but for those that the next steps need.
void openAllButTwo() {
    const rlimit few{64, 64};
    setrlimit(RLIMIT_NOFILE, &few);
    while (open("/dev/null", O_RDONLY | O_CLOEXEC) < 61) {
    }
}

void crashTogether(int count) {
    std::atomic<int> missing{count};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back([&missing] {
            --missing;
            while (missing > 0) {
            }
            raise(SIGSEGV);
        });
    }
    hang();
}

void run(const std::string& step) {
    const std::string argument = step.substr(std::min(step.find(':') + 1, step.size()));
    if (step == "install") {
        ExitDeadline::install();
    } else if (step == "fork") {
        goOnInChild();
    } else if (step == "spend") {
        const rlimit none{0, 0};
        if (setgid(65534) != 0 || setuid(65534) != 0 || setrlimit(RLIMIT_NPROC, &none) != 0) {
            fail("spend");
        }
    } else if (step.starts_with("listen:")) {
        listenAt(argument);
    } else if (step == "many") {
        openMany();
    } else if (step.starts_with("lock:")) {
        lockFile(argument);
    } else if (step.starts_with("say:")) {
        std::puts(argument.c_str());
        std::fflush(stdout);
    } else if (step.starts_with("arm:")) {
        const auto [status, time] = statusAndTime(argument);
        ExitDeadline::arm(status, time);
    } else if (step.starts_with("arm-at-term:")) {
        std::tie(statusAtTerm, timeAtTerm) = statusAndTime(argument);
        std::signal(SIGTERM, [](int) { ExitDeadline::arm(statusAtTerm, timeAtTerm); });
    } else if (step == "hang") {
        hang();
    } else if (step == "hang-blocked") {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        std::thread([] { hang(); }).detach();
        hang();
    } else if (step == "hang-in-lock") {
        flockfile(stderr);
        std::thread([] { std::fputs("never seen\n", stderr); }).detach();
        hang();
    } else if (step == "all") {
        openAllButTwo();
    } else if (step == "let-go") {
        ExitDeadline::letGo();
    } else if (step == "wait") {
        std::getchar();
    } else if (step == "fatal") {
        fatal("a state that cannot be");
    } else if (step == "last-words") {
        installFatalSignalHandler(
            []() noexcept {
                [[maybe_unused]] const ssize_t done = write(STDERR_FILENO, "last words\n", 11);
            },
            {ExitDeadline::armForSignal, ExitDeadline::letGo});
    } else if (step.starts_with("crash-together:")) {
        crashTogether(std::stoi(argument));
    } else if (step.starts_with("exit:")) {
        std::exit(std::stoi(argument));
    } else {
        std::fprintf(stderr, "unknown step %s\n", step.c_str());
        std::_Exit(91);
    }
}

} // namespace
} // namespace corvid

// Its faults are meant: a sanitizer leaves them to the program. The sanitizers look for these
// names. NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_abort=0:use_sigaltstack=0";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_abort=0:use_sigaltstack=0";
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        corvid::run(argv[i]);
    }
    return 0;
}
