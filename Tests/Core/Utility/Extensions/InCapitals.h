#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace corvid {

/// The text with its ASCII letters in capitals.
inline std::string inCapitals(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

} // namespace corvid
