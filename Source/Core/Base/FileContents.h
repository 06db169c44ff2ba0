#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace corvid {

/// The bytes of the file at `path`. Nothing when it cannot be read, a folder among others; then
/// `errno` says why. Any thread.
std::optional<std::string> readFile(const std::string& path);

/// What is left of `file`, which may be a pipe; otherwise as above.
std::optional<std::string> readToEnd(std::FILE* file);

} // namespace corvid
