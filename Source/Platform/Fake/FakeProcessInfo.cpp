#include "Platform/Fake/FakeProcessInfo.h"

#include <utility>

namespace corvid {

std::optional<std::string> FakeProcessInfo::environment(std::string_view name) const {
    const MutexLock lock(mutex_);
    const auto found = environment_.find(name);
    return found != environment_.end() ? std::optional<std::string>(found->second) : std::nullopt;
}

std::int32_t FakeProcessInfo::processIdentifier() const {
    const MutexLock lock(mutex_);
    return identifier_;
}

std::uint64_t FakeProcessInfo::threadIdentifier() const {
    return 1;
}

std::array<std::uint8_t, 16> FakeProcessInfo::randomBytes() {
    const MutexLock lock(mutex_);
    std::array<std::uint8_t, 16> bytes{};
    for (std::uint8_t& byte : bytes) {
        byte = nextByte_++;
    }
    return bytes;
}

void FakeProcessInfo::setEnvironment(std::string_view name, std::string value) {
    const MutexLock lock(mutex_);
    environment_.insert_or_assign(std::string(name), std::move(value));
}

void FakeProcessInfo::unsetEnvironment(std::string_view name) {
    const MutexLock lock(mutex_);
    environment_.erase(std::string(name));
}

void FakeProcessInfo::setProcessIdentifier(std::int32_t identifier) {
    const MutexLock lock(mutex_);
    identifier_ = identifier;
}

} // namespace corvid
