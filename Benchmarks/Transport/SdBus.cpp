#include "Benchmarks/Transport/DBus.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace corvid::bench {

namespace {

constexpr const char* kName = "org.corvid.Benchmark";
constexpr const char* kPath = "/org/corvid/Benchmark";

void check(int result, const char* what) {
    if (result < 0) {
        std::fprintf(stderr, "D-Bus: %s: %d\n", what, result);
        std::exit(1);
    }
}

sd_bus* connect(const std::string& address) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "new");
    check(sd_bus_set_address(bus, address.c_str()), "address");
    check(sd_bus_set_bus_client(bus, 1), "client");
    check(sd_bus_start(bus), "start");
    return bus;
}

int answer(sd_bus_message* message, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(message, "s", "synced");
}

[[noreturn]] void serve(const std::string& address, int ready) {
    static const sd_bus_vtable kTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Badge", "ay", "s", answer, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
    sd_bus* const bus = connect(address);
    check(sd_bus_add_object_vtable(bus, nullptr, kPath, kName, kTable, nullptr), "table");
    check(sd_bus_request_name(bus, kName, 0), "name");
    close(ready);
    for (;;) {
        const int result = sd_bus_process(bus, nullptr);
        if (result < 0) {
            _exit(0);
        }
        if (result == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

class SdBus final : public DBus {
public:
    SdBus(pid_t daemon, pid_t service, sd_bus* bus)
        : daemon_(daemon), service_(service), bus_(bus) {}
    ~SdBus() override {
        sd_bus_flush_close_unref(bus_);
        for (const pid_t process : {service_, daemon_}) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }

    void request(const Bytes& data) override {
        sd_bus_message* call = nullptr;
        sd_bus_message* reply = nullptr;
        check(sd_bus_message_new_method_call(bus_, &call, kName, kPath, kName, "Badge"), "message");
        check(sd_bus_message_append_array(call, 'y', data.data(), data.size()), "data");
        check(sd_bus_call(bus_, call, 0, nullptr, &reply), "call");
        const char* badge = nullptr;
        check(sd_bus_message_read(reply, "s", &badge), "reply");
        sd_bus_message_unref(call);
        sd_bus_message_unref(reply);
    }

private:
    pid_t daemon_;
    pid_t service_;
    sd_bus* bus_;
};

} // namespace

std::unique_ptr<DBus> DBus::start() {
    int ends[2];
    if (pipe(ends) != 0) {
        return nullptr;
    }
    const pid_t daemon = fork();
    if (daemon == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], 1);
        close(ends[0]);
        execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--print-address",
               static_cast<char*>(nullptr));
        _exit(1);
    }
    close(ends[1]);
    std::string address;
    char character = 0;
    while (read(ends[0], &character, 1) == 1 && character != '\n') {
        address += character;
    }
    close(ends[0]);
    if (address.empty()) {
        std::fprintf(stderr, "No comparison with D-Bus: dbus-daemon does not start.\n");
        waitpid(daemon, nullptr, 0);
        return nullptr;
    }
    if (pipe(ends) != 0) {
        return nullptr;
    }
    const pid_t service = fork();
    if (service == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ends[0]);
        serve(address, ends[1]);
    }
    close(ends[1]);
    [[maybe_unused]] const ssize_t ended = read(ends[0], &character, 1);
    close(ends[0]);
    return std::make_unique<SdBus>(daemon, service, connect(address));
}

} // namespace corvid::bench
