#pragma once

#include "Core/Base/Bytes.h"

#include <string_view>

namespace corvid {

inline Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

} // namespace corvid
