#pragma once

#include "App/Logging/LogFlags.h"
#include "App/Reporting/CVDDLogFileManagerDefault.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// The bundle identifier of the extension, which also names the folder of its logs.
inline constexpr std::string_view kFinderExtBundleIdentifier =
    "com.corvid.desktop.widget.FinderExt";

/// Names, recognises and limits the log files of one process of the extension, and starts the file
/// logger that writes them.
///
/// Made on any thread; the file logger then calls newLogFileName() and isLogFile() from its own.
class CVMALogFileManager final : public CVDDLogFileManagerDefault {
public:
    /// A manager whose files begin with `baseName`, with its file logger registered at all levels
    /// under the limits of CVD_MAX_LOG_COUNT and CVD_MAX_LOG_SIZE. The logger shares it.
    static std::shared_ptr<CVMALogFileManager> withBaseName(std::string baseName);

    /// A manager without a base name and without a file logger.
    CVMALogFileManager();

    /// How long the folder is waited for when it is looked up and made. A disk that takes longer
    /// must not hold up the start of the extension: the folder is then taken to be there, and the
    /// file logger makes it, should it not be, when the disk answers.
    static constexpr std::chrono::milliseconds kDirectoryWait{500};

    /// Not available: the logs directory is never chosen by a caller. Fatal.
    [[noreturn]] static std::shared_ptr<CVMALogFileManager>
    withLogsDirectory(std::string_view logsDirectory);

    /// The folder "Logs/" and the bundle identifier in the library folder, made if missing; empty,
    /// with a line in the system log, when it cannot be made. Fatal without a library folder or
    /// a bundle identifier.
    static std::string corvidLogsDir();

    /// The base name, the local time as "_yyyy_dd_MM_HH_mm_ss" (the day before the month), ".log".
    /// Fatal without a base name.
    std::optional<std::string> newLogFileName() const override;

    /// True when `name` begins with the base name and ends with ".log". Fatal when either is
    /// absent.
    bool isLogFile(std::optional<std::string_view> name) const override;

    /// Removes every logger of CVDDLog, not only the one that this manager registered.
    void removeLogger();

    /// All five levels.
    LogFlags logVerbosity() const { return LOG_VERBOSITY; }

protected:
    /// Only files whose name goes on with "_" after the base name: the files of process 42 are not
    /// those of process 4242.
    bool mayDelete(std::string_view name) const override;

private:
    struct LogsDirectory {
        std::string path;    ///< empty when it cannot be made
        std::string problem; ///< then why not
    };
    static LogsDirectory settledLogsDirectory();
    explicit CVMALogFileManager(LogsDirectory directory);

    static void configureLogManager(const std::shared_ptr<CVMALogFileManager>& manager);

    const LogFlags LOG_VERBOSITY{LogFlags::error, LogFlags::warn, LogFlags::info, LogFlags::debug,
                                 LogFlags::verbose};
    std::optional<std::string> LOG_FILE_BASENAME;
};

} // namespace corvid
