#include "App/Logging/CVMALogFileManager.h"

#include "App/Reporting/CVDDFileLogger.h"
#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/CVFileSystemHelper.h"
#include "App/Reporting/CallWithin.h"
#include "App/Reporting/LogTrouble.h"
#include "Core/Base/Fatal.h"
#include "Platform/Interfaces/Platform.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <utility>

namespace corvid {

namespace {

constexpr std::uint64_t kDefaultLogCount = 20;
constexpr std::uint64_t kLargestLogCount = 999;
constexpr std::uint64_t kDefaultLogSize = 2;
constexpr std::uint64_t kLargestLogSize = 49;
constexpr std::uint64_t kLogSizeUnit = 1000 * 1024;
constexpr std::chrono::hours kRollingFrequency{24};

/// The number that the environment gives `variable`, or `fallback` when there is none, when it is
/// not a decimal integer throughout (one sign is allowed), or not from 1 to `largest`.
std::uint64_t environmentNumber(std::string_view variable, std::uint64_t largest,
                                std::uint64_t fallback) {
    const std::optional<std::string> value = platform().processInfo.environment(variable);
    std::string_view digits = value.has_value() ? std::string_view(*value) : std::string_view();
    // from_chars() knows the minus sign only.
    if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') {
        digits.remove_prefix(1);
    }
    std::int64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc() || stop != end || number < 1 ||
        static_cast<std::uint64_t>(number) > largest) {
        return fallback;
    }
    return static_cast<std::uint64_t>(number);
}

} // namespace

CVMALogFileManager::CVMALogFileManager() : CVMALogFileManager(settledLogsDirectory()) {}

CVMALogFileManager::CVMALogFileManager(LogsDirectory directory)
    : CVDDLogFileManagerDefault(std::move(directory.path), std::move(directory.problem)) {}

std::shared_ptr<CVMALogFileManager> CVMALogFileManager::withBaseName(std::string baseName) {
    auto manager = std::make_shared<CVMALogFileManager>();
    manager->LOG_FILE_BASENAME = std::move(baseName);
    configureLogManager(manager);
    return manager;
}

std::shared_ptr<CVMALogFileManager> CVMALogFileManager::withLogsDirectory(std::string_view) {
    fatal("Use of unimplemented initializer 'init(logsDirectory:)' for class "
          "'CorvidFinderExt.CVMALogFileManager'");
}

std::string CVMALogFileManager::corvidLogsDir() {
    return settledLogsDirectory().path;
}

CVMALogFileManager::LogsDirectory CVMALogFileManager::settledLogsDirectory() {
    const Platform& system = platform();
    const std::optional<std::string> bundleIdentifier = system.mainBundle.bundleIdentifier();
    const std::optional<std::string> library = CVFileSystemHelper::applicationLibraryDirectory();
    if (!library.has_value()) {
        fatal("there is no library folder to keep logs in");
    }
    if (!bundleIdentifier.has_value()) {
        fatal("the main bundle has no identifier to name the logs folder by");
    }
    std::string path = *library + "/Logs/" + *bundleIdentifier;
    // Nothing that goes on after the time is up refers to this function's variables.
    const std::function<std::optional<std::string>()> settle =
        [&files = system.fileManager, path]() -> std::optional<std::string> {
        const FileManager::Existence existence = files.fileExistsAtPath(path);
        return existence.exists && existence.isDirectory ? std::nullopt
                                                         : files.createDirectoryAtPath(path);
    };
    const auto failure = callWithin(kDirectoryWait, settle).value_or(std::nullopt);
    if (failure) {
        system.systemLog.log("Unable to create directory " + *failure);
        return {"", textForMissingFolder(path, *failure)};
    }
    return {path, ""};
}

std::optional<std::string> CVMALogFileManager::newLogFileName() const {
    if (!LOG_FILE_BASENAME.has_value()) {
        fatal("a log file manager without a base name was asked for a file name");
    }
    const Clock& clock = platform().clock;
    const std::tm now = clock.localTime(clock.now()).fields;
    std::array<char, 80> date{};
    std::snprintf(date.data(), date.size(), "_%04d_%02d_%02d_%02d_%02d_%02d", now.tm_year + 1900,
                  now.tm_mday, now.tm_mon + 1, now.tm_hour, now.tm_min, now.tm_sec);
    return *LOG_FILE_BASENAME + date.data() + ".log";
}

bool CVMALogFileManager::isLogFile(std::optional<std::string_view> name) const {
    if (!name.has_value() || !LOG_FILE_BASENAME.has_value()) {
        fatal("a log file can be recognised only by a name and a base name");
    }
    return name->starts_with(*LOG_FILE_BASENAME) && name->ends_with(".log");
}

bool CVMALogFileManager::mayDelete(std::string_view name) const {
    return isLogFile(name) && name.substr(LOG_FILE_BASENAME->size()).starts_with('_');
}

void CVMALogFileManager::removeLogger() {
    CVDDLog::removeAllLoggers();
}

void CVMALogFileManager::configureLogManager(const std::shared_ptr<CVMALogFileManager>& manager) {
    manager->setMaximumNumberOfLogFiles(
        environmentNumber("CVD_MAX_LOG_COUNT", kLargestLogCount, kDefaultLogCount));

    const auto logger = std::make_shared<CVDDFileLogger>(manager);
    logger->setLogFormatter(std::make_unique<CVLumberjackDefaultLogFormatter>());
    logger->setMaximumFileSize(
        environmentNumber("CVD_MAX_LOG_SIZE", kLargestLogSize, kDefaultLogSize) * kLogSizeUnit);
    logger->setRollingFrequency(kRollingFrequency);
    logger->start();
    CVDDLog::addLogger(logger, manager->LOG_VERBOSITY.rawValue());
}

} // namespace corvid
