#include "Support/LogFiles.h"

#include "App/Logging/CVMALogFileManager.h"
#include "Platform/Unix/UnixFileManager.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <system_error>
#include <tuple>

namespace corvid {

namespace {

constexpr std::string_view kBaseName = "CVMAExt_";
constexpr std::string_view kExtension = ".log";

bool isRunning(pid_t process) {
    return kill(process, 0) == 0 || errno == EPERM;
}

/// The number before the extension that tells files of one second apart, 1 where there is none.
/// Seven groups of digits come before it: the process and the date.
std::uint64_t numberOf(std::string_view name) {
    if (std::count(name.begin(), name.end(), '_') < 8) {
        return 1;
    }
    name.remove_suffix(kExtension.size());
    name.remove_prefix(name.rfind('_') + 1);
    std::uint64_t number = 1;
    std::from_chars(name.data(), name.data() + name.size(), number);
    return number;
}

} // namespace

std::optional<std::string> logsFolder() {
    const auto library = UnixFileManager().applicationLibraryDirectory();
    if (!library.has_value()) {
        return std::nullopt;
    }
    return *library + "/Logs/" + std::string(kFinderExtBundleIdentifier);
}

std::optional<pid_t> processOfLogFile(std::string_view name) {
    if (!name.starts_with(kBaseName) || !name.ends_with(kExtension)) {
        return std::nullopt;
    }
    name.remove_prefix(kBaseName.size());
    pid_t process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    const bool isWhole = error == std::errc() && process > 0 && (*end == '_' || *end == '.');
    return isWhole ? std::optional<pid_t>(process) : std::nullopt;
}

std::vector<LogFileInfo> logFilesIn(const std::string& folder) {
    std::error_code error;
    std::vector<LogFileInfo> files;
    for (const auto& file : UnixFileManager().regularFilesOfDirectoryAtPath(folder, error)) {
        if (const auto process = processOfLogFile(file.name)) {
            files.push_back({file.name, folder + "/" + file.name, *process, isRunning(*process),
                             file.size, file.created});
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw std::system_error(error, folder);
    }
    const auto age = [](const LogFileInfo& file) {
        // Files made in one tick of the file system's clock have one date.
        return std::tuple(file.created, numberOf(file.name), std::string_view(file.name));
    };
    std::sort(files.begin(), files.end(),
              [&age](const auto& a, const auto& b) { return age(a) < age(b); });
    return files;
}

std::vector<LogFileInfo> filesToPrune(const std::vector<LogFileInfo>& files,
                                      std::optional<std::uint64_t> keep,
                                      std::optional<std::chrono::system_clock::time_point> oldest) {
    std::vector<LogFileInfo> pruned;
    std::uint64_t left = files.size();
    for (const LogFileInfo& file : files) {
        const bool isSurplus = keep.has_value() && left > *keep;
        const bool isOld = oldest.has_value() && file.created < *oldest;
        if (!file.isRunning && (isSurplus || isOld)) {
            pruned.push_back(file);
            --left;
        }
    }
    return pruned;
}

} // namespace corvid
