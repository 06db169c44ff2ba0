#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Interfaces/ProcessInfo.h"

#include <map>

namespace corvid {

/// A process whose environment and number the test sets, and whose random bytes count up from 0,
/// so that two draws differ and every run is alike. Every thread is number 1. Any thread.
class FakeProcessInfo final : public ProcessInfo {
public:
    std::optional<std::string> environment(std::string_view name) const override;
    std::int32_t processIdentifier() const override;
    std::uint64_t threadIdentifier() const override;
    std::array<std::uint8_t, 16> randomBytes() override;

    void setEnvironment(std::string_view name, std::string value);
    void unsetEnvironment(std::string_view name);
    void setProcessIdentifier(std::int32_t identifier);

private:
    mutable Mutex mutex_;
    std::map<std::string, std::string, std::less<>> environment_ CORVID_GUARDED_BY(mutex_);
    std::int32_t identifier_ CORVID_GUARDED_BY(mutex_) = 4242;
    std::uint8_t nextByte_ CORVID_GUARDED_BY(mutex_) = 0;
};

} // namespace corvid
