#pragma once

#include <cstdint>
#include <string>
#include <system_error>

namespace corvid {

/// Why log lines are lost, where the system has no word for it.
enum class LogFailure {
    diskDoesNotAnswer = 1, ///< a call takes too long
    noMemory,
};
std::error_code make_error_code(LogFailure failure);

// What people are told about a log that is on and not written: the folder, the reason, the remedy.

/// For a folder that could not be made at the start; `failure` is what createDirectoryAtPath()
/// says. No log is written then as long as the process lives.
std::string textForMissingFolder(const std::string& folder, const std::string& failure);
/// For a process that got no thread to write with; likewise for good.
std::string textForMissingThread(const std::error_code& reason);
/// For lines that cannot be written at the moment; `lost` is how many they are so far.
std::string textForLoss(const std::string& folder, const std::error_code& reason,
                        std::uint64_t lost);

} // namespace corvid

template <>
struct std::is_error_code_enum<corvid::LogFailure> : std::true_type {};
