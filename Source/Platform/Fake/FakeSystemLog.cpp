#include "Platform/Fake/FakeSystemLog.h"

#include <string>

namespace corvid {

void FakeSystemLog::log(std::string_view message) {
    calls_.add("systemLog " + std::string(message));
}

} // namespace corvid
