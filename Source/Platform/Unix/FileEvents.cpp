#include "Platform/Unix/FileEvents.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace corvid {

bool readFileEvents(int inotify, const std::function<void(const FileEvent&)>& hear) {
    // Room for at least sixty events, aligned as the kernel writes them (inotify(7)).
    alignas(inotify_event) std::array<char, 16 * 1024> buffer;
    ssize_t size = 0;
    do {
        size = ::read(inotify, buffer.data(), buffer.size());
    } while (size < 0 && errno == EINTR);
    for (ssize_t at = 0; at < size;) {
        inotify_event event;
        std::memcpy(&event, buffer.data() + at, sizeof event);
        // The name is padded with zeros.
        const char* const name = buffer.data() + at + sizeof event;
        hear({event.wd, event.mask, {name, strnlen(name, event.len)}});
        at += static_cast<ssize_t>(sizeof event + event.len);
    }
    return size > 0;
}

} // namespace corvid
