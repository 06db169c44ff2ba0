#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace corvid {

/// One log file of the extension, of whatever process.
struct LogFileInfo {
    std::string name;
    std::string path;
    pid_t process = 0;
    bool isRunning = false; ///< a process with that number lives now, so the file may still grow
    std::uint64_t size = 0; ///< bytes
    std::chrono::system_clock::time_point created;
};

/// The folder of the extension's log files, which need not exist; nothing when the user has no
/// home.
std::optional<std::string> logsFolder();

/// The number of the process that wrote a log file called `name`; nothing when it is no log file
/// of the extension.
std::optional<pid_t> processOfLogFile(std::string_view name);

/// The log files in `folder`, the oldest first; none when there is no such folder. What cannot be
/// read otherwise is an exception, std::system_error.
std::vector<LogFileInfo> logFilesIn(const std::string& folder);

/// Which of `files`, oldest first, are to be removed so that at most `keep` stay and none is older
/// than `oldest` (nothing: no matter). Files of running processes always stay, and count as kept.
std::vector<LogFileInfo> filesToPrune(const std::vector<LogFileInfo>& files,
                                      std::optional<std::uint64_t> keep,
                                      std::optional<std::chrono::system_clock::time_point> oldest);

} // namespace corvid
