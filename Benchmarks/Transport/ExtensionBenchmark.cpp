// What the extension costs a session: to start, to have, and while nothing happens.

#include "Benchmarks/Figure.h"
#include "Benchmarks/Transport/Series.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <semaphore>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace corvid::bench {

namespace {

using namespace std::chrono_literals;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

class Extension {
public:
    explicit Extension(const std::string& volume) {
        std::string program = CORVID_BIN_DIR "/corvid-finder-ext";
        std::string option = "--volume";
        std::string folder = volume;
        char* arguments[] = {program.data(), option.data(), folder.data(), nullptr};
        // Figures alone go to standard output.
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments, environ) != 0) {
            fail(program + " does not start");
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Extension() {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    Extension(const Extension&) = delete;
    Extension& operator=(const Extension&) = delete;

    /// Times that any thread of it was woken up so far.
    long wakeUps() const {
        long count = 0;
        for (const auto& task : std::filesystem::directory_iterator(proc() + "/task")) {
            count += number(task.path().string() + "/status", "voluntary_ctxt_switches:");
        }
        return count;
    }
    double residentMegabytes() const {
        return static_cast<double>(number(proc() + "/status", "VmRSS:")) * 1024 / 1e6;
    }

private:
    std::string proc() const { return "/proc/" + std::to_string(process_); }
    static long number(const std::string& file, const std::string& key) {
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with(key)) {
                return std::stol(line.substr(key.size()));
            }
        }
        fail(file + " lacks " + key);
    }

    pid_t process_ = 0;
};

void measure(const std::string& place, bool isQuick) {
    setenv("XDG_RUNTIME_DIR", place.c_str(), 1);
    setenv("XDG_STATE_HOME", place.c_str(), 1);
    const std::string volume = place + "/volume";
    std::filesystem::create_directory(volume);
    UnixDispatch dispatch;
    UnixMessagePortService service;
    std::counting_semaphore<> registrations(0);
    const auto host = service.createLocal(
        CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue(),
        [&](MessagePort&, std::int32_t messageID, std::optional<ByteView>) {
            if (messageID == CVMAMessageID(CVMAMessageID::updatePortIDs).rawValue()) {
                registrations.release();
            }
            return std::optional<Bytes>();
        });
    if (host == nullptr) {
        fail("the host's port cannot be opened");
    }
    service.setDispatchQueue(*host, dispatch.serialQueue("host"));

    const auto awaitRegistration = [&] {
        if (!registrations.try_acquire_for(30s)) {
            fail("corvid-finder-ext did not register within half a minute");
        }
    };
    Series starts;
    for (int i = 0; i < (isQuick ? 3 : 20); ++i) {
        std::unique_ptr<Extension> extension;
        starts.measure([&] {
            extension = std::make_unique<Extension>(volume);
            awaitRegistration();
        });
        extension.reset();
        awaitRegistration(); // it also takes its name back
    }
    print({"start_to_registered_ms", starts.median() / 1000, "ms", 10.0, Better::Lower});

    const Extension extension(volume);
    awaitRegistration();
    std::this_thread::sleep_for(500ms); // until its start is really over
    print({"resident_mb", extension.residentMegabytes(), "MB", 8.0, Better::Lower});
    const auto span = isQuick ? 2s : 20s;
    const long before = extension.wakeUps();
    std::this_thread::sleep_for(span);
    const auto woken = static_cast<double>(extension.wakeUps() - before);
    print({"idle_wakeups_per_minute", woken * 60 / std::chrono::duration<double>(span).count(),
           "1/min", 0.0, Better::Lower});
}

} // namespace

} // namespace corvid::bench

int main(int argc, char** argv) {
    std::string place = "/tmp/corvid-bench-XXXXXX";
    if (mkdtemp(place.data()) == nullptr) {
        corvid::bench::fail(place + " cannot be made");
    }
    corvid::bench::measure(place, corvid::bench::isQuick(argc, argv));
    std::filesystem::remove_all(place);
    return 0;
}
