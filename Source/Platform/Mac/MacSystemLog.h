#pragma once

#include "Platform/Interfaces/SystemLog.h"

namespace corvid {

/// `NSLog`.
class MacSystemLog final : public SystemLog {
public:
    void log(std::string_view message) override;
};

} // namespace corvid
