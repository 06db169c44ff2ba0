#pragma once

#include "Core/Base/URL.h"

#include <string>
#include <vector>

namespace corvid {

/// What log lines say of values. Lists: `[`, the elements separated by a comma and a blank, `]`.

/// URLs as their absolute text.
std::string logText(const URL& url);
std::string logText(const std::vector<URL>& urls);

/// Texts in double quotes, with `"`, `\`, newline, return, tab and NUL escaped by a backslash.
std::string logText(const std::vector<std::string>& texts);

} // namespace corvid
