#pragma once

#include "Platform/Interfaces/FileManager.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace corvid {

/// The log files of one logger: makes them, and deletes the oldest ones. How they are named and
/// told from other files is a subclass's business.
class CVDDLogFileManagerDefault {
public:
    virtual ~CVDDLogFileManagerDefault() = default;
    CVDDLogFileManagerDefault(const CVDDLogFileManagerDefault&) = delete;
    CVDDLogFileManagerDefault& operator=(const CVDDLogFileManagerDefault&) = delete;

    /// The folder of the log files; empty when there is none, and then nothing is ever written.
    const std::string& logsDirectory() const { return logsDirectory_; }

    /// When there is no folder: why not, as a sentence for people with the remedy; may be empty.
    const std::string& directoryProblem() const { return directoryProblem_; }

    /// How many files are kept, the current one included; 0 for no limit. To be set before a
    /// logger uses the manager.
    void setMaximumNumberOfLogFiles(std::uint64_t count) { maximumNumberOfLogFiles_ = count; }
    std::uint64_t maximumNumberOfLogFiles() const { return maximumNumberOfLogFiles_; }

    /// The name of the next log file. Any thread.
    virtual std::optional<std::string> newLogFileName() const = 0;
    /// Whether a file of the folder is a log file. Any thread.
    virtual bool isLogFile(std::optional<std::string_view> name) const = 0;

    struct LogFile {
        std::string path;
        std::unique_ptr<AppendFile> file;
    };
    /// Deletes the oldest of this manager's files until one more may be there, then makes that
    /// one: under newLogFileName(), with _2, _3 and so on before its extension when the name is
    /// taken. Makes the folder again when it is gone. Its `file` is null, and the reason in
    /// `error`, when it cannot. One thread at a time.
    LogFile createNewLogFile(std::error_code& error);

protected:
    /// Keeps its files in `logsDirectory`, an absolute path, or nowhere when that is empty, for the
    /// reason `problem`.
    explicit CVDDLogFileManagerDefault(std::string logsDirectory, std::string problem = {});

    /// Whether a log file may be deleted to make room: never one of another manager, whose name
    /// may begin alike. Any thread.
    virtual bool mayDelete(std::string_view name) const = 0;

private:
    std::string pathOf(std::string_view name) const;
    std::error_code deleteOldLogFiles();

    const std::string logsDirectory_;
    const std::string directoryProblem_;
    std::uint64_t maximumNumberOfLogFiles_ = 0;
    std::string lastName_;
    std::uint64_t uses_ = 0; ///< of lastName_, with or without a number
    /// What this manager made, oldest first. Files made in one tick of the file system's clock
    /// have one age; their order is known only here.
    std::vector<std::string> madeHere_;
};

} // namespace corvid
