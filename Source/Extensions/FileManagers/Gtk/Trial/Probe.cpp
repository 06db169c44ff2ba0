#include "Extensions/FileManagers/Gtk/Trial/Probe.h"

#include "Extensions/FileManagers/Gtk/Trial/Next.h"

#include <glib-unix.h>
#include <glib.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

using Figure = std::atomic<std::uint64_t>;

/// Since it was last zeroed, in nanoseconds. Pauses are without the time that the main thread
/// waited for a processor, since a busy machine is nobody's fault here; single calls are with it.
struct Measured {
    Figure iterations;    ///< of the main loop
    Figure longest;       ///< from the end of one wait for events to the begin of the next
    Figure longestHeldUp; ///< such time less that on a processor: what others held it up
    Figure longestModule; ///< of such time, what the module took
    Figure badgeCalls;    ///< "which badge has this item?"
    Figure badgeTime;
    Figure longestBadge;
    Figure menuCalls; ///< "which entries for this selection?"
    Figure menuTime;
    Figure longestMenu;
    Figure emblems; ///< that the module gave
};

struct Moment {
    std::uint64_t wall = 0;
    std::uint64_t processor = 0;
    std::uint64_t queue = 0;
};

Measured* measured = nullptr;
int schedule = -1;
Moment woken;
std::uint64_t moduleTime = 0; // in this iteration

std::uint64_t read(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

/// How long the main thread has waited for a processor so far.
std::uint64_t readQueue() {
    std::array<char, 128> text{};
    unsigned long long queue = 0;
    if (pread(schedule, text.data(), text.size() - 1, 0) > 0) {
        std::sscanf(text.data(), "%*u %llu", &queue);
    }
    return queue;
}

void raise(Figure& greatest, std::uint64_t value) {
    if (value > greatest) {
        greatest = value;
    }
}

std::uint64_t less(std::uint64_t value, std::uint64_t by) {
    return value > by ? value - by : 0;
}

/// Before the wait for events.
gboolean prepare(GSource* /*source*/, gint* timeout) {
    *timeout = -1;
    if (woken.wall != 0) {
        const std::uint64_t all = read(CLOCK_MONOTONIC) - woken.wall;
        const std::uint64_t processor = read(CLOCK_THREAD_CPUTIME_ID) - woken.processor;
        const std::uint64_t queue = readQueue() - woken.queue;
        raise(measured->longest, less(all, queue));
        raise(measured->longestHeldUp, less(all, processor + queue));
        raise(measured->longestModule, std::min(moduleTime, less(all, queue)));
        ++measured->iterations;
    }
    return FALSE;
}

/// After it.
gboolean check(GSource* /*source*/) {
    moduleTime = 0;
    woken = {read(CLOCK_MONOTONIC), read(CLOCK_THREAD_CPUTIME_ID), readQueue()};
    return FALSE;
}

gboolean dispatch(GSource* /*source*/, GSourceFunc /*callback*/, gpointer /*data*/) {
    return G_SOURCE_CONTINUE;
}

GSourceFuncs functions = {prepare, check, dispatch, nullptr, nullptr, nullptr};

/// While it lives the module works.
class Work {
public:
    explicit Work(Figure Measured::* calls = nullptr, Figure Measured::* time = nullptr,
                  Figure Measured::* longest = nullptr)
        : calls_(calls), time_(time), longest_(longest) {
        if (measured != nullptr) {
            begin_ = read(CLOCK_MONOTONIC);
        }
    }
    ~Work() {
        if (measured == nullptr) {
            return;
        }
        const std::uint64_t taken = read(CLOCK_MONOTONIC) - begin_;
        moduleTime += taken;
        if (calls_ != nullptr) {
            ++(measured->*calls_);
            measured->*time_ += taken;
            raise(measured->*longest_, taken);
        }
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

private:
    Figure Measured::* calls_;
    Figure Measured::* time_;
    Figure Measured::* longest_;
    std::uint64_t begin_ = 0;
};

/// What the module has the main loop call.
struct Callback {
    GSourceFunc function;
    GUnixFDSourceFunc descriptorFunction;
    gpointer data;
    GDestroyNotify destroy;
};

gboolean callBack(gpointer data) {
    const Work work;
    const auto* const callback = static_cast<Callback*>(data);
    return callback->function(callback->data);
}

gboolean callBackForDescriptor(gint descriptor, GIOCondition condition, gpointer data) {
    const Work work;
    const auto* const callback = static_cast<Callback*>(data);
    return callback->descriptorFunction(descriptor, condition, callback->data);
}

void drop(gpointer data) {
    auto* const callback = static_cast<Callback*>(data);
    if (callback->destroy != nullptr) {
        callback->destroy(callback->data);
    }
    delete callback;
}

template <class Function>
bool isOfModule(Function function) {
    Dl_info object{};
    return measured != nullptr && dladdr(reinterpret_cast<void*>(function), &object) != 0 &&
           std::strstr(object.dli_fname, "/corvid-") != nullptr;
}

} // namespace

namespace corvid::gtk {

void watchMainLoop(const char* path) {
    if (measured != nullptr) {
        return;
    }
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

} // namespace corvid::gtk

CORVID_EXPORT guint g_idle_add_full(gint priority, GSourceFunc function, gpointer data,
                                    GDestroyNotify destroy) {
    static const auto add = corvid::gtk::next<decltype(&g_idle_add_full)>("g_idle_add_full");
    return isOfModule(function)
               ? add(priority, callBack, new Callback{function, nullptr, data, destroy}, drop)
               : add(priority, function, data, destroy);
}

CORVID_EXPORT guint g_idle_add(GSourceFunc function, gpointer data) {
    return g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, function, data, nullptr);
}

CORVID_EXPORT guint g_unix_fd_add_full(gint priority, gint descriptor, GIOCondition condition,
                                       GUnixFDSourceFunc function, gpointer data,
                                       GDestroyNotify destroy) {
    static const auto add = corvid::gtk::next<decltype(&g_unix_fd_add_full)>("g_unix_fd_add_full");
    return isOfModule(function) ? add(priority, descriptor, condition, callBackForDescriptor,
                                      new Callback{nullptr, function, data, destroy}, drop)
                                : add(priority, descriptor, condition, function, data, destroy);
}

// What the file managers call the module through. Their types do not matter here.
#define CORVID_PROVIDER_CALLS(prefix)                                                              \
    CORVID_EXPORT int prefix##_info_provider_update_file_info(void* provider, void* file,          \
                                                              void* done, void** handle) {         \
        using Function = int (*)(void*, void*, void*, void**);                                     \
        static const auto call =                                                                   \
            corvid::gtk::next<Function>(#prefix "_info_provider_update_file_info");                \
        const Work work(&Measured::badgeCalls, &Measured::badgeTime, &Measured::longestBadge);     \
        return call(provider, file, done, handle);                                                 \
    }                                                                                              \
    CORVID_EXPORT void prefix##_file_info_add_emblem(void* file, const char* emblem) {             \
        using Function = void (*)(void*, const char*);                                             \
        static const auto call = corvid::gtk::next<Function>(#prefix "_file_info_add_emblem");     \
        if (measured != nullptr) {                                                                 \
            ++measured->emblems;                                                                   \
        }                                                                                          \
        call(file, emblem);                                                                        \
    }                                                                                              \
    CORVID_EXPORT void* prefix##_menu_provider_get_file_items(void* provider, void* window,        \
                                                              void* files) {                       \
        using Function = void* (*)(void*, void*, void*);                                           \
        static const auto call =                                                                   \
            corvid::gtk::next<Function>(#prefix "_menu_provider_get_file_items");                  \
        const Work work(&Measured::menuCalls, &Measured::menuTime, &Measured::longestMenu);        \
        return call(provider, window, files);                                                      \
    }                                                                                              \
    CORVID_EXPORT void* prefix##_menu_provider_get_background_items(void* provider, void* window,  \
                                                                    void* folder) {                \
        using Function = void* (*)(void*, void*, void*);                                           \
        static const auto call =                                                                   \
            corvid::gtk::next<Function>(#prefix "_menu_provider_get_background_items");            \
        const Work work(&Measured::menuCalls, &Measured::menuTime, &Measured::longestMenu);        \
        return call(provider, window, folder);                                                     \
    }                                                                                              \
    CORVID_EXPORT void* prefix##_location_widget_provider_get_widget(                              \
        void* provider, const char* uri, void* window) {                                           \
        using Function = void* (*)(void*, const char*, void*);                                     \
        static const auto call =                                                                   \
            corvid::gtk::next<Function>(#prefix "_location_widget_provider_get_widget");           \
        const Work work;                                                                           \
        return call(provider, uri, window);                                                        \
    }

CORVID_PROVIDER_CALLS(caja)
CORVID_PROVIDER_CALLS(nemo)
