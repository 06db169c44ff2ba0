// Message ports against a bare socket and against D-Bus, and the controller against the message
// ports: each interleaved, between two processes.

#include "App/Reporting/AppReportingService.h"
#include "Benchmarks/Figure.h"
#include "Benchmarks/Transport/BareSocket.h"
#include "Benchmarks/Transport/DBus.h"
#include "Benchmarks/Transport/Series.h"
#include "Core/Archive/KeyedArchive.h"
#include "Extensions/Finder/CVMAFinderSync.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Platform/Interfaces/FIFinderSyncController.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Tests/Support/RealPlatform.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace corvid::bench {

namespace {

constexpr std::chrono::milliseconds kTimeout{10000};
constexpr std::int32_t kRequestBadge = 4;
constexpr std::size_t kLargeBytes = std::size_t{64} << 20U;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

enum class Side { client, server };

/// Keeps this process, and those that it starts, on the processor of its side: the first and the
/// last that it may use. Else what is compared would depend on whether the scheduler happened to
/// give one server the client's processor and the other a different one.
void keepTo(Side side) {
    static const std::vector<std::size_t> usable = [] {
        cpu_set_t set;
        std::vector<std::size_t> processors;
        if (sched_getaffinity(0, sizeof set, &set) == 0) {
            for (std::size_t i = 0; i < CPU_SETSIZE; ++i) {
                if (CPU_ISSET(i, &set)) {
                    processors.push_back(i);
                }
            }
        }
        return processors;
    }();
    if (usable.empty()) {
        return;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(side == Side::client ? usable.front() : usable.back(), &set);
    sched_setaffinity(0, sizeof set, &set);
}

/// A process that runs `body` after it has said that it is ready, and is killed at the end.
class Server {
public:
    using Ready = std::function<void()>;
    explicit Server(const std::function<void(Ready)>& body) {
        int ends[2];
        if (pipe(ends) != 0) {
            fail("pipe");
        }
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[0]);
            keepTo(Side::server);
            body([&] { close(ends[1]); });
            _exit(0);
        }
        close(ends[1]);
        char nothing = 0;
        [[maybe_unused]] const ssize_t ended = read(ends[0], &nothing, 1);
        close(ends[0]);
    }
    ~Server() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
        }
        wait();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Until it ends by itself.
    void wait() {
        if (process_ > 0) {
            waitpid(process_, nullptr, 0);
            process_ = 0;
        }
    }

private:
    pid_t process_ = 0;
};

URL item() {
    return *URL::fileURL("/Volumes/Corvid/Projects/Annual Report/Figures 2026.xlsx");
}

Bytes badgeRequest() {
    return archivedData(Value::dictionary({{"url", Value::url(item())}}));
}

Bytes badgeReply() {
    return archivedData(Value::string("synced"));
}

/// The folder of one run.
class Place {
public:
    Place() {
        if (mkdtemp(path_.data()) == nullptr) {
            fail("mkdtemp");
        }
    }
    ~Place() { std::filesystem::remove_all(path_); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    const std::string& path() const { return path_; }
    RuntimeFolder runtimeFolder() const { return RuntimeFolder(path_ + "/corvid"); }
    std::string operator/(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_ = "/tmp/corvid-bench-XXXXXX";
};

/// Serves `name` for ever.
void servePort(const Place& place, const std::string& name, const MessagePortCallback& callback,
               const Server::Ready& ready) {
    UnixDispatch dispatch;
    UnixMessagePortService service(place.runtimeFolder());
    const auto port = service.createLocal(name, callback);
    if (port == nullptr) {
        fail("createLocal");
    }
    service.setDispatchQueue(*port, dispatch.serialQueue("host"));
    ready();
    pause();
}

void request(MessagePortService& service, const char* name, const Bytes& data,
             std::optional<Bytes>& reply) {
    const auto remote = service.createRemote(name);
    if (remote == nullptr || service.sendRequest(*remote, kRequestBadge, data, kTimeout, kTimeout,
                                                 "mode", &reply) != SendStatus::success) {
        fail("request");
    }
}

void measureBadgeRequest(const Place& place, DBus* bus, bool isQuick) {
    const Bytes question = badgeRequest();
    const Bytes answer = badgeReply();
    const Server host([&](const Server::Ready& ready) {
        servePort(
            place, "host",
            [&](MessagePort&, std::int32_t, std::optional<ByteView>) { return answer; }, ready);
    });
    const std::string barePath = place / "bare";
    const Server bare([&](const Server::Ready& ready) {
        BareServer server(barePath);
        ready();
        server.answer(question.size(), answer);
    });
    UnixMessagePortService service(place.runtimeFolder());
    std::optional<Bytes> reply;
    Bytes bareReply(answer.size());
    Series ours;
    Series theirs;
    Series dbus;
    const int rounds = isQuick ? 500 : 30000;
    for (int i = 0; i < rounds; ++i) {
        ours.measure([&] { request(service, "host", question, reply); });
        theirs.measure(
            [&] { bareRequest(barePath, question, bareReply.data(), bareReply.size()); });
        if (bus != nullptr && i % 4 == 0) {
            dbus.measure([&] { bus->request(question); });
        }
    }
    if (reply != answer || bareReply != answer) {
        fail("badge reply");
    }
    print({"badge_round_trip_p50_us", ours.median(), "us", {}, Better::Lower});
    print({"badge_round_trip_p50_vs_socket", ours.median() / theirs.median(), "ratio", 1.15,
           Better::Lower});
    print({"badge_round_trip_p99_vs_socket", ours.percentile(0.99) / theirs.percentile(0.99),
           "ratio", 1.4, Better::Lower});
    if (bus != nullptr) {
        print({"dbus_vs_badge_round_trip_p50", dbus.median() / ours.median(), "ratio", 2.0,
               Better::Higher});
    }
}

/// A file manager that does nothing but take badges.
class BadgeTaker final : public FIFinderSyncController {
public:
    void setDirectoryURLs(const std::vector<URL>&) override {}
    void setBadgeImage(std::shared_ptr<Image>, const std::optional<std::string>&,
                       std::string_view) override {}
    void setBadgeIdentifier(std::string_view identifier, const URL&) override {
        badge_ = identifier;
    }
    std::optional<URL> targetedURL() override { return std::nullopt; }
    std::optional<std::vector<URL>> selectedItemURLs() override { return std::nullopt; }

    const std::string& badge() const { return badge_; }

private:
    std::string badge_;
};

void measureController(const Place& place, bool isQuick) {
    const std::string name(CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue());
    const Bytes answer = badgeReply();
    const Server host([&](const Server::Ready& ready) {
        servePort(
            place, name,
            [&](MessagePort&, std::int32_t, std::optional<ByteView>) { return answer; }, ready);
    });
    setenv("XDG_RUNTIME_DIR", place.path().c_str(), 1);
    RealPlatform system;
    AppReportingService reporting;
    AppReportingService::setSharedReportingService(&reporting);
    BadgeTaker fileManager;
    FIFinderSyncController::setDefaultController(&fileManager);
    {
        const auto controller = CVMAFinderSync::create();
        const URL url = item();
        const Bytes question = badgeRequest();
        std::optional<Bytes> reply;
        Series whole;
        Series transport;
        for (int i = 0; i < (isQuick ? 500 : 20000); ++i) {
            whole.measure([&] { controller->requestBadgeIdentifier(url); });
            transport.measure([&] { request(system.messagePorts, name.c_str(), question, reply); });
        }
        if (fileManager.badge() != "synced" || reply != answer) {
            fail("badge of the controller");
        }
        print({"controller_overhead_us", whole.median() - transport.median(), "us", 10.0,
               Better::Lower});
    }
    FIFinderSyncController::setDefaultController(nullptr);
    AppReportingService::setSharedReportingService(nullptr);
}

void measurePushes(const Place& place, bool isQuick) {
    const Bytes push = badgeRequest();
    const std::size_t count = isQuick ? 500 : 5000;
    const int rounds = isQuick ? 2 : 8;
    double ours = 0;
    double theirs = 0;
    UnixMessagePortService service(place.runtimeFolder());
    const std::string barePath = place / "barepush";
    for (int round = 0; round < rounds; ++round) {
        Server receiver([&](const Server::Ready& ready) {
            std::size_t received = 0;
            servePort(
                place, "receiver",
                [&](MessagePort&, std::int32_t, std::optional<ByteView>) {
                    if (++received == count) {
                        _exit(0);
                    }
                    return std::optional<Bytes>();
                },
                ready);
        });
        auto start = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < count; ++i) {
            const auto remote = service.createRemote("receiver");
            if (remote == nullptr ||
                service.sendRequest(*remote, 3, push, kTimeout, kTimeout, std::nullopt, nullptr) !=
                    SendStatus::success) {
                fail("push");
            }
        }
        receiver.wait();
        ours += secondsSince(start);

        Server bare([&](const Server::Ready& ready) {
            BareServer server(barePath);
            ready();
            server.take(push.size(), count);
        });
        start = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < count; ++i) {
            bareRequest(barePath, push, nullptr, 0);
        }
        bare.wait();
        theirs += secondsSince(start);
    }
    const double total = static_cast<double>(count) * rounds;
    print({"push_rate_per_s", total / ours, "1/s", {}, Better::Higher});
    print({"push_rate_vs_socket", theirs / ours, "ratio", 0.7, Better::Higher});
}

void measureBandwidth(const Place& place, bool isQuick) {
    const Bytes question(64);
    const Bytes answer(kLargeBytes, 0x5A);
    const Server host([&](const Server::Ready& ready) {
        servePort(
            place, "large",
            [&](MessagePort&, std::int32_t, std::optional<ByteView>) { return answer; }, ready);
    });
    const std::string barePath = place / "barelarge";
    const Server bare([&](const Server::Ready& ready) {
        BareServer server(barePath);
        ready();
        server.answer(question.size(), answer);
    });
    UnixMessagePortService service(place.runtimeFolder());
    Series ours;
    Series theirs;
    for (int i = 0; i < (isQuick ? 2 : 15); ++i) {
        ours.measure([&] {
            std::optional<Bytes> reply;
            request(service, "large", question, reply);
            keep(reply->back());
        });
        theirs.measure([&] {
            const std::unique_ptr<std::uint8_t[]> reply(new std::uint8_t[kLargeBytes]);
            bareRequest(barePath, question, reply.get(), kLargeBytes);
            keep(reply[kLargeBytes - 1]);
        });
    }
    print({"reply_bandwidth_mib_per_s", 64e6 / ours.median(), "MiB/s", {}, Better::Higher});
    print({"reply_bandwidth_vs_socket", theirs.median() / ours.median(), "ratio", 0.5,
           Better::Higher});
}

void measureAbsence(const Place& place, bool isQuick) {
    UnixMessagePortService service(place.runtimeFolder());
    Series absent;
    for (int i = 0; i < (isQuick ? 100 : 5000); ++i) {
        absent.measure([&] {
            if (service.createRemote("com.corvid.desktop.widget") != nullptr) {
                fail("absence");
            }
        });
    }
    print({"absent_host_us", absent.median(), "us", 20.0, Better::Lower});
}

} // namespace

} // namespace corvid::bench

int main(int argc, char** argv) {
    using namespace corvid::bench;
    const bool isQuick = corvid::bench::isQuick(argc, argv);
    const Place place;
    keepTo(Side::server);
    const auto bus = DBus::start();
    keepTo(Side::client);
    measureBadgeRequest(place, bus.get(), isQuick);
    measureController(place, isQuick);
    measurePushes(place, isQuick);
    measureBandwidth(place, isQuick);
    measureAbsence(place, isQuick);
    return 0;
}
