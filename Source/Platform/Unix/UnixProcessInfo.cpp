#include "Platform/Unix/UnixProcessInfo.h"

#include "Core/Base/Fatal.h"

#include <cstdlib>
#include <sys/random.h>
#include <unistd.h>

namespace corvid {

std::optional<std::string> UnixProcessInfo::environment(std::string_view name) const {
    const char* value = std::getenv(std::string(name).c_str());
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::int32_t UnixProcessInfo::processIdentifier() const {
    return getpid();
}

std::uint64_t UnixProcessInfo::threadIdentifier() const {
    return static_cast<std::uint64_t>(gettid());
}

std::array<std::uint8_t, 16> UnixProcessInfo::randomBytes() {
    std::array<std::uint8_t, 16> bytes{};
    if (getentropy(bytes.data(), bytes.size()) != 0) {
        fatal("the system's random source failed");
    }
    return bytes;
}

} // namespace corvid
