#pragma once

#include <cerrno>
#include <system_error>

namespace corvid {

/// What errno says, as the last call of the system that failed has set it.
inline std::error_code lastError() {
    return {errno, std::generic_category()};
}

} // namespace corvid
