#include "Platform/Interfaces/Platform.h"

#include "Core/Base/Fatal.h"

#include <atomic>

namespace corvid {

namespace {
std::atomic<const Platform*> installed{nullptr};
} // namespace

const Platform& platform() {
    const Platform* current = installed.load();
    if (current == nullptr) {
        fatal("no platform is installed");
    }
    return *current;
}

const Platform* setPlatform(const Platform* platform) {
    return installed.exchange(platform);
}

} // namespace corvid
