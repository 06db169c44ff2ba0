#pragma once

#include "Platform/Fake/CallLog.h"
#include "Platform/Interfaces/SystemLog.h"

namespace corvid {

/// Records each message as `systemLog MESSAGE`. Any thread.
class FakeSystemLog final : public SystemLog {
public:
    /// Records into `calls`, which must outlive it.
    explicit FakeSystemLog(CallLog& calls) : calls_(calls) {}
    void log(std::string_view message) override;

private:
    CallLog& calls_;
};

} // namespace corvid
