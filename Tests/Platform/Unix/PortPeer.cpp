// The other process of the message-port tests: one mode of behaviour a command line. It says what
// it has done on standard output and goes on when a line comes on standard input; it ends with
// that input.

#include "Platform/Unix/MessageFrame.h"
#include "Platform/Unix/RuntimeKeeper.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/VolumeFile.h"
#include "Tests/Support/BytesOf.h"
#include "Tests/Support/RestlessClock.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <poll.h>
#include <pthread.h>
#include <random>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace corvid;
using namespace std::chrono_literals;

namespace {

void say(const std::string& line) {
    std::cout << line << std::endl;
}

bool mayGoOn() {
    std::string line;
    return static_cast<bool>(std::getline(std::cin, line));
}

[[noreturn]] void fail(const std::string& what) {
    std::cerr << what << std::endl;
    std::exit(1);
}

/// Answers with the data it was sent, after `before` has run.
class Echo {
public:
    explicit Echo(
        const std::string& name, std::function<void()> before = [] {})
        : port_(service_.createLocal(
              name, [before](MessagePort&, std::int32_t, std::optional<ByteView> data) {
                  before();
                  return std::optional(data ? Bytes(data->begin(), data->end()) : Bytes());
              })) {
        if (port_ == nullptr) {
            fail("cannot serve " + name);
        }
        service_.setDispatchQueue(*port_, dispatch_.serialQueue("echo"));
    }

private:
    UnixDispatch dispatch_;
    UnixMessagePortService service_;
    MessagePortRef port_;
};

void serve(const std::string& name) {
    const Echo echo(name);
    say("ready");
    mayGoOn();
}

// A child without exec keeps nothing of the port.
void serveAndFork(const std::string& name) {
    const Echo echo(name);
    if (fork() == 0) {
        say(std::to_string(getpid()));
        pause();
        _exit(0);
    }
    mayGoOn();
}

// Signals without end on the thread that serves, where there are none otherwise. Says at last how
// many there were.
void serveAmidSignals(const std::string& name) {
    static std::atomic<long> count{0};
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    struct sigaction action{};
    action.sa_handler = [](int) { ++count; };
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 500}, {0, 500}};
    setitimer(ITIMER_REAL, &often, nullptr);

    const Echo echo(name, [&] { pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr); });
    say("ready");
    mayGoOn();
    say(std::to_string(count));
}

void serveWhileTheClockIsSetBack(const std::string& name) {
    const RestlessClock clock;
    serve(name);
}

// Every message is told on a line, after the name of its sender.
void collect(const std::string& name, std::size_t count) {
    UnixDispatch dispatch;
    UnixMessagePortService service;
    std::map<std::string, std::int32_t> next;
    std::size_t received = 0;
    const auto port = service.createLocal(
        name, [&](MessagePort&, std::int32_t messageID, std::optional<ByteView> data) {
            const std::string sender(data->begin(), data->end());
            if (messageID != next[sender]++) {
                say("out of order: " + sender + " " + std::to_string(messageID));
            }
            if (++received == count) {
                say("all");
            }
            return std::optional<Bytes>();
        });
    service.setDispatchQueue(*port, dispatch.serialQueue("collect"));
    say("ready");
    mayGoOn();
    service.invalidate(*port);
    say(std::to_string(received));
}

void send(const std::string& name, int count, const std::string& sender) {
    UnixMessagePortService service;
    const Bytes data = bytesOf(sender);
    say("ready");
    mayGoOn();
    for (int i = 0; i < count; ++i) {
        const auto remote = service.createRemote(name);
        if (remote == nullptr || service.sendRequest(*remote, i, data, 60s, 60s, std::nullopt,
                                                     nullptr) != SendStatus::success) {
            fail("send " + std::to_string(i));
        }
    }
    // No word of farewell: what was sent must arrive nevertheless.
    _exit(0);
}

void race(const std::string& name) {
    UnixMessagePortService service;
    say("ready");
    while (mayGoOn()) {
        auto port =
            service.createLocal(name, [](MessagePort&, std::int32_t, std::optional<ByteView>) {
                return std::optional<Bytes>();
            });
        say(port != nullptr ? "mine" : "theirs");
        mayGoOn();
        port.reset();
        say("free");
    }
}

// Connects, asks and leaves in every way that a front end may.
/// What became of the questions of all front ends of this process.
struct Visits {
    std::atomic<int> answered = 0;
    std::atomic<int> failed = 0;
};

// One front end: comes, does something at random, goes.
void visit(const std::string& name, std::minstd_rand& random, Visits& visits) {
    UnixMessagePortService service;
    const Bytes data(1 + random() % 3000, 1);
    const auto remote = service.createRemote(name);
    if (remote == nullptr) {
        ++visits.failed;
        return;
    }
    switch (random() % 6) {
    case 0: // leaves before the answer
        service.sendRequest(*remote, 1, data, 60s, 0ms, "mode", nullptr);
        break;
    case 1: // tells
        service.sendRequest(*remote, 1, data, 60s, 0ms, std::nullopt, nullptr);
        break;
    case 2: // changes its mind
        break;
    case 3: { // is cut short
        const auto connection = service.portFolder().connect(name, std::nullopt);
        FrameHeader header;
        header.hasData = header.wantsReply = true;
        header.dataBytes = 1000;
        auto frame = encodedHeader(header);
        send(connection.fd.get(), frame.data(), random() % (frame.size() + 1), MSG_NOSIGNAL);
        break;
    }
    default: { // asks
        std::optional<Bytes> reply;
        const auto status = service.sendRequest(*remote, 1, data, 60s, 60s, "mode", &reply);
        ++(status == SendStatus::success && reply == data ? visits.answered : visits.failed);
    }
    }
}

// `frontEnds` at a time, one coming when another goes, until the first is done with its last one;
// then all the others leave as they are.
void visitAtRandom(const std::string& name, int frontEnds, std::chrono::milliseconds time,
                   unsigned seed) {
    const auto end = std::chrono::steady_clock::now() + time;
    Visits visits;
    const auto visitUntilTheEnd = [&](unsigned number) {
        std::minstd_rand random(seed + number);
        do {
            visit(name, random, visits);
        } while (std::chrono::steady_clock::now() < end);
    };
    for (int i = 1; i < frontEnds; ++i) {
        std::thread(visitUntilTheEnd, i).detach();
    }
    visitUntilTheEnd(0);
    say(std::to_string(visits.answered) + " " + std::to_string(visits.failed));
    _exit(0);
}

// `count` senders at a time that never send all of a request: each says a byte and no more, or
// (`how` is "drip") one every few milliseconds, and comes again when it is sent away. Ready when
// each has been there once.
void sayHalf(const std::string& name, int count, const std::string& how) {
    UnixMessagePortService service;
    std::atomic<int> connected = 0;
    FrameHeader header;
    header.hasData = header.wantsReply = true;
    header.dataBytes = 1000;
    const auto frame = encodedHeader(header);
    for (int i = 0; i < count; ++i) {
        std::thread([&] {
            for (bool isFirst = true;; isFirst = false) {
                const auto connection = service.portFolder().connect(name, Deadline(60s));
                if (isFirst && ++connected == std::min(count, 100)) {
                    say("ready");
                }
                const int fd = connection.fd.get();
                std::size_t sent = 0;
                pollfd entry{fd, POLLIN, 0};
                do {
                    const bool sends = sent == 0 || (how == "drip" && sent < frame.size());
                    sent += sends && ::send(fd, &frame[sent], 1, MSG_NOSIGNAL) == 1 ? 1U : 0U;
                } while (poll(&entry, 1, how == "drip" ? 3 : -1) == 0);
            }
        }).detach();
    }
    mayGoOn();
    _exit(0);
}

// Asks for a reply with no more memory to be had than `mebibytes`, and says what became of it; then
// asks with memory.
void askWithoutMemory(const std::string& name, std::size_t mebibytes) {
    UnixMessagePortService service;
    const Bytes data(std::size_t{32} << 20U, 1);
    const auto ask = [&] {
        const auto remote = service.createRemote(name);
        std::optional<Bytes> reply;
        const auto status = service.sendRequest(*remote, 1, data, 60s, 60s, "mode", &reply);
        say(std::to_string(static_cast<int>(status)) + (reply ? " with a reply" : " without"));
    };
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlimit few{static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE)) + (mebibytes << 20U),
                     before.rlim_max};
    setrlimit(RLIMIT_AS, &few);
    ask();
    setrlimit(RLIMIT_AS, &before);
    ask();
    mayGoOn();
}

void publish(const std::string& folder) {
    const auto published = VolumeFile::ofHost(RuntimeFolder::ofThisUser()).publish(folder, true);
    if (published.publication == nullptr) {
        fail(published.problem);
    }
    say("ready");
    mayGoOn();
}

// Serves `name`, answers with this process's number, publishes `volume`, and keeps both. Says what
// goes wrong with them, a line each time it changes. Ends with its input.
void keep(const std::string& name, const std::string& volume, const std::function<void()>& onLine) {
    UnixDispatch dispatch;
    UnixMessagePortService service;
    const std::string answer = std::to_string(getpid());
    const auto port =
        service.createLocal(name, [&](MessagePort&, std::int32_t, std::optional<ByteView>) {
            return std::optional(bytesOf(answer));
        });
    const auto published = VolumeFile::ofHost(RuntimeFolder::ofThisUser()).publish(volume, true);
    if (port == nullptr || published.publication == nullptr) {
        fail("cannot serve " + name + " or publish " + volume + ": " + published.problem);
    }
    service.setDispatchQueue(*port, dispatch.serialQueue("port"));
    say("ready");
    const RuntimeKeeper keeper(service.portFolder(), *published.publication,
                               dispatch.serialQueue("keep"),
                               {{}, {}, [](const std::string& problem) {
                                    say(problem.empty() ? "all is well" : problem);
                                }});
    std::string line;
    while (std::getline(std::cin, line) && line == "lift") {
        onLine();
    }
}

// In a user namespace of its own, whose limits are nobody else's.
void keepWithoutInotify(const std::string& name, const std::string& volume) {
    const auto write = [](const char* file, const std::string& text) {
        std::ofstream stream(file);
        stream << text << std::flush;
        if (!stream) {
            say(std::string(file) + " cannot be written");
            std::exit(0);
        }
    };
    const std::string user = std::to_string(geteuid());
    if (unshare(CLONE_NEWUSER) != 0) {
        say("there are no user namespaces");
        std::exit(0);
    }
    constexpr const char* kLimit = "/proc/sys/user/max_inotify_instances";
    write("/proc/self/uid_map", user + " " + user + " 1");
    write(kLimit, "0");
    keep(name, volume, [&] { write(kLimit, "16"); });
}

void sendAll(int fd, ByteView data) {
    while (!data.empty()) {
        const ssize_t count = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (count < 0) {
            return;
        }
        data = data.subspan(static_cast<std::size_t>(count));
    }
}

// A server that speaks the protocol badly, one connection after another, or that stops itself at
// some point of the first and does well afterwards.
void misbehave(const std::string& name, const std::string& how) {
    PortFolder folder(RuntimeFolder::ofThisUser());
    auto listener = folder.take(name);
    if (!listener) {
        fail("cannot serve " + name);
    }
    say("ready");
    if (how == "never accepts") {
        mayGoOn();
        return;
    }
    std::thread([&] {
        bool hasStopped = false;
        const auto stopOnce = [&](const char* where) {
            if (!hasStopped && how == where) {
                hasStopped = true;
                raise(SIGSTOP);
            }
        };
        for (;;) {
            pollfd entry{listener->fd.get(), POLLIN, 0};
            poll(&entry, 1, -1);
            stopOnce("stops before accepting");
            const int fd = accept4(listener->fd.get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                continue;
            }
            stopOnce("stops before reading");
            std::array<std::uint8_t, kFrameHeaderBytes> request{};
            [[maybe_unused]] const ssize_t count =
                recv(fd, request.data(), request.size(), MSG_WAITALL);
            const auto asked = decodedHeader(request);
            Bytes rest(asked ? asked->dataBytes : 0);
            recv(fd, rest.data(), rest.size(), MSG_WAITALL);
            stopOnce("stops before replying");
            FrameHeader header;
            header.kind = FrameKind::reply;
            header.hasData = true;
            header.messageID = asked ? asked->messageID : 0;
            header.number = asked ? asked->number : 0;
            const Bytes data = bytesOf("twelve bytes");
            header.dataBytes = static_cast<std::uint32_t>(data.size());
            if (how == "other request") {
                ++header.number;
            } else if (how == "other message") {
                ++header.messageID;
            } else if (how == "longer than said") {
                --header.dataBytes;
            } else if (how == "shorter than said") {
                ++header.dataBytes;
            } else if (how == "request for reply") {
                header.kind = FrameKind::request;
            } else if (how == "later version") {
                header.version = header.oldestReader = 2;
            }
            const std::uint16_t addedHeader = how == "longer header" ? 12 : 0;
            if (addedHeader > 0) {
                header.version = 2;
                header.headerBytes = static_cast<std::uint16_t>(kFrameHeaderBytes + addedHeader);
            }
            auto frame = encodedHeader(header);
            if (how == "oversize") {
                frame[27] = 0x7F;
            } else if (how == "garbage") {
                frame.fill('?');
            }
            Bytes answer(frame.begin(), frame.end());
            answer.insert(answer.end(), addedHeader, 0xEE);
            answer.insert(answer.end(), data.begin(), data.end());
            if (how == "cut") {
                answer.resize(10);
            } else if (how == "silence") {
                pause();
            } else if (how == "no reply") {
                answer.clear();
            }
            if (how == "drip") {
                for (const std::uint8_t byte : answer) {
                    sendAll(fd, {&byte, 1});
                    usleep(100'000);
                }
            } else {
                sendAll(fd, answer);
            }
            close(fd);
        }
    }).detach();
    mayGoOn();
    PortFolder::release(*listener);
    _exit(0);
}

void limitDescriptors(rlim_t count) {
    closefrom(STDERR_FILENO + 1); // What was inherited does not count.
    const rlimit limit{count, count};
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string& mode = words.at(0);
    const std::string& name = words.at(1);
    if (mode == "serve") {
        serve(name);
    } else if (mode == "serve-with-descriptors") {
        limitDescriptors(static_cast<rlim_t>(std::stoi(words.at(2))));
        serve(name);
    } else if (mode == "serve-amid-signals") {
        serveAmidSignals(name);
    } else if (mode == "serve-while-the-clock-is-set-back") {
        serveWhileTheClockIsSetBack(name);
    } else if (mode == "serve-and-fork") {
        serveAndFork(name);
    } else if (mode == "collect") {
        collect(name, static_cast<std::size_t>(std::stoi(words.at(2))));
    } else if (mode == "send") {
        send(name, std::stoi(words.at(2)), words.at(3));
    } else if (mode == "race") {
        race(name);
    } else if (mode == "visit") {
        visitAtRandom(name, std::stoi(words.at(2)),
                      std::chrono::milliseconds(std::stoi(words.at(3))),
                      static_cast<unsigned>(std::stoi(words.at(4))));
    } else if (mode == "keep") {
        keep(name, words.at(2), [] {});
    } else if (mode == "keep-without-inotify") {
        keepWithoutInotify(name, words.at(2));
    } else if (mode == "say-half") {
        sayHalf(name, std::stoi(words.at(2)), words.at(3));
    } else if (mode == "ask-without-memory") {
        askWithoutMemory(name, static_cast<std::size_t>(std::stoi(words.at(2))));
    } else if (mode == "publish") {
        publish(name);
    } else if (mode == "misbehave") {
        misbehave(name, words.at(2));
    } else {
        fail("no mode " + mode);
    }
    return 0;
}
