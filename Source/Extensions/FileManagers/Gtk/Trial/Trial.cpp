// For tests and script/try-in: loaded before a file manager's own libraries (LD_PRELOAD), has it
// take its modules from a folder of the build, and no others. CORVID_TRIAL_OWN is the folder where
// it would look, CORVID_TRIAL_MODULES the one where it looks instead.
//
// With CORVID_TRIAL_PROBE=FILE it keeps watch over the main loop and leaves in FILE, which is
// mapped, what Measured says.

#include <glib.h>
#include <gmodule.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

/// `path` with the file manager's own folder of modules replaced.
std::string redirected(const char* path) {
    const char* const own = std::getenv("CORVID_TRIAL_OWN");
    const char* const modules = std::getenv("CORVID_TRIAL_MODULES");
    std::string text = path;
    if (own != nullptr && modules != nullptr && text.starts_with(own)) {
        text.replace(0, std::string(own).size(), modules);
    }
    return text;
}

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// In nanoseconds, of all iterations since it was last zeroed.
struct Measured {
    std::atomic<std::uint64_t> iterations;
    /// The longest time from the end of one wait for events to the begin of the next.
    std::atomic<std::uint64_t> longest;
    /// The longest such time less that on a processor and that of waiting for one: what the main
    /// thread was held up by others.
    std::atomic<std::uint64_t> longestHeldUp;
};

struct Moment {
    std::uint64_t wall = 0;
    std::uint64_t processor = 0;
    std::uint64_t queue = 0;
};

Measured* measured = nullptr;
int schedule = -1;
Moment woken;

std::uint64_t read(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

Moment now() {
    Moment moment;
    std::array<char, 128> text{};
    if (pread(schedule, text.data(), text.size() - 1, 0) > 0) {
        unsigned long long processor = 0;
        unsigned long long queue = 0;
        std::sscanf(text.data(), "%llu %llu", &processor, &queue);
        moment.queue = queue;
    }
    moment.processor = read(CLOCK_THREAD_CPUTIME_ID);
    moment.wall = read(CLOCK_MONOTONIC);
    return moment;
}

void raise(std::atomic<std::uint64_t>& greatest, std::uint64_t value) {
    if (value > greatest) {
        greatest = value;
    }
}

/// Before the wait for events.
gboolean prepare(GSource* /*source*/, gint* timeout) {
    *timeout = -1;
    if (woken.wall != 0) {
        const Moment end = now();
        const std::uint64_t all = end.wall - woken.wall;
        const std::uint64_t own = end.processor - woken.processor + end.queue - woken.queue;
        raise(measured->longest, all);
        raise(measured->longestHeldUp, all > own ? all - own : 0);
        ++measured->iterations;
    }
    return FALSE;
}

/// After it.
gboolean check(GSource* /*source*/) {
    woken = now();
    return FALSE;
}

gboolean dispatch(GSource* /*source*/, GSourceFunc /*callback*/, gpointer /*data*/) {
    return G_SOURCE_CONTINUE;
}

GSourceFuncs functions = {prepare, check, dispatch, nullptr, nullptr, nullptr};

void watchMainLoop(const char* path) {
    const int file = open(path, O_RDWR | O_CLOEXEC);
    schedule = open("/proc/self/schedstat", O_RDONLY | O_CLOEXEC);
    if (file < 0 || ftruncate(file, sizeof(Measured)) != 0) {
        std::fprintf(stderr, "%s cannot be written\n", path);
        return;
    }
    void* const memory =
        mmap(nullptr, sizeof(Measured), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (memory == MAP_FAILED) {
        return;
    }
    measured = static_cast<Measured*>(memory);
    GSource* const source = g_source_new(&functions, sizeof(GSource));
    g_source_set_priority(source, G_MININT);
    g_source_attach(source, nullptr);
}

} // namespace

#define CORVID_EXPORT extern "C" __attribute__((visibility("default")))

CORVID_EXPORT GDir* g_dir_open(const gchar* path, guint flags, GError** error) {
    return next<decltype(&g_dir_open)>("g_dir_open")(redirected(path).c_str(), flags, error);
}

CORVID_EXPORT GModule* g_module_open(const gchar* name, GModuleFlags flags) {
    const auto open = next<decltype(&g_module_open)>("g_module_open");
    if (name == nullptr) {
        return open(nullptr, flags);
    }
    const std::string path = redirected(name);
    // The first module is loaded when the file manager's main loop is about to begin.
    if (const char* const probe = std::getenv("CORVID_TRIAL_PROBE");
        probe != nullptr && measured == nullptr && path != name) {
        watchMainLoop(probe);
    }
    return open(path.c_str(), flags);
}
