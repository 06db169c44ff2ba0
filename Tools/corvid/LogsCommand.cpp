#include "Commands.h"

#include "App/Reporting/LogRedactor.h"
#include "Core/Base/FileContents.h"
#include "Core/Base/PrintableText.h"
#include "Platform/Unix/UnixFileManager.h"
#include "Platform/Unix/VolumeFile.h"
#include "Support/LinkSession.h"
#include "Support/LogFiles.h"
#include "Support/LogFollower.h"
#include "Support/RedactionKey.h"
#include "Support/TarGzWriter.h"

#include <nlohmann/json.hpp>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

namespace corvid {

namespace {

using nlohmann::ordered_json;

struct LogsOptions {
    bool json = false;
    bool redact = false;
    bool noRedact = false;
    bool noFollow = false;
    bool yes = false;
    std::size_t lines = 10;
    std::optional<std::uint64_t> keep;
    std::optional<std::uint64_t> olderThanDays;
    std::string file;
};

std::string requiredLogsFolder() {
    auto folder = logsFolder();
    if (!folder.has_value()) {
        throw std::runtime_error("there is no home folder to look for logs in; set HOME");
    }
    return *folder;
}

/// The local folders that are or may be the volume.
std::vector<std::string> volumeFolders() {
    std::vector<std::string> folders;
    for (const VolumeFile& file : {VolumeFile::ofHost(RuntimeFolder::ofThisUser()),
                                   VolumeFile::ofExtension(RuntimeFolder::ofThisUser())}) {
        if (const auto published = file.read()) {
            folders.push_back(published->folder);
        }
    }
    if (const char* named = std::getenv("CVD_VOLUME_PATH"); named != nullptr && named[0] == '/') {
        folders.emplace_back(named);
    }
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        folders.push_back(std::string(home) + "/Corvid");
    }
    return folders;
}

std::string formatted(std::chrono::system_clock::time_point moment, const char* format, bool utc) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm fields{};
    utc ? gmtime_r(&seconds, &fields) : localtime_r(&seconds, &fields);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), format, &fields);
    return text.data();
}

std::string counted(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " log file" : " log files");
}

void print(const ordered_json& object) {
    std::puts(object.dump(-1, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

ordered_json description(const LogFileInfo& file) {
    return {
        {"name", file.name},   {"path", file.path},
        {"pid", file.process}, {"running", file.isRunning},
        {"bytes", file.size},  {"created", formatted(file.created, "%Y-%m-%dT%H:%M:%SZ", true)}};
}

void printTable(const std::vector<LogFileInfo>& files) {
    std::printf("%-19s  %10s  %7s  %-7s  %s\n", "BEGUN", "BYTES", "PROCESS", "RUNNING", "FILE");
    for (const LogFileInfo& file : files) {
        std::printf("%-19s  %10llu  %7d  %-7s  %s\n",
                    formatted(file.created, "%Y-%m-%d %H:%M:%S", false).c_str(),
                    static_cast<unsigned long long>(file.size), file.process,
                    file.isRunning ? "yes" : "no", printableText(file.name).c_str());
    }
}

/// How long the extension may take to say how its log is.
constexpr std::chrono::milliseconds kStatusTimeout{1000};

/// Says on standard error what keeps the extension that runs from writing its log. Before the disk
/// is looked at: if it hangs, this command will hang as well.
void sayLogProblem() {
    LinkSession::Options options;
    options.mayStart = false;
    LinkSession session(options);
    try {
        const Deadline deadline(kStatusTimeout);
        session.open(deadline);
        if (const std::string problem = session.status(deadline).logProblem; !problem.empty()) {
            std::fprintf(stderr, "corvid: %s\n", printableText(problem).c_str());
        }
    } catch (const LinkError&) {
        // No extension runs, or it does not answer: "corvid status" is for that.
    }
}

void list(const LogsOptions& options) {
    sayLogProblem();
    const std::string folder = requiredLogsFolder();
    const std::vector<LogFileInfo> files = logFilesIn(folder);
    if (options.json) {
        for (const LogFileInfo& file : files) {
            print(description(file));
        }
        return;
    }
    if (files.empty()) {
        std::printf("No logs in %s.\nThe extension writes them when it is started with "
                    "CVD_ENABLE_FINDER_EXT_LOGGING=1.\n",
                    printableText(folder).c_str());
        return;
    }
    std::printf("%s\n", printableText(folder).c_str());
    printTable(files);
}

void tail(const LogsOptions& options) {
    sayLogProblem();
    const std::string folder = requiredLogsFolder();
    if (const auto failure = UnixFileManager().createDirectoryAtPath(folder)) {
        throw std::runtime_error("cannot make the logs folder " + *failure);
    }
    std::optional<LogRedactor> redactor;
    if (options.redact) {
        redactor.emplace(redactionKey(), volumeFolders());
    }
    LogFollower follower(folder, [&redactor](std::string_view line) {
        const std::string shown =
            redactor.has_value() ? redactor->redacted(line) : std::string(line);
        std::fwrite(shown.data(), 1, shown.size(), stdout);
    });
    follower.readLast(options.lines);
    if (options.noFollow) {
        return;
    }
    follower.follow([] { std::fflush(stdout); });
    throw std::runtime_error("the logs folder " + folder + " is gone");
}

void prune(const LogsOptions& options) {
    if (!options.keep.has_value() && !options.olderThanDays.has_value()) {
        throw UsageError("logs prune: say what may go: --keep N, --older-than DAYS, or both");
    }
    std::optional<std::chrono::system_clock::time_point> oldest;
    if (options.olderThanDays.has_value()) {
        oldest = std::chrono::system_clock::now() -
                 std::chrono::hours(24) * static_cast<std::int64_t>(*options.olderThanDays);
    }
    const std::vector<LogFileInfo> files = logFilesIn(requiredLogsFolder());
    const std::vector<LogFileInfo> pruned = filesToPrune(files, options.keep, oldest);
    if (!options.json) {
        if (pruned.empty()) {
            std::printf("Nothing to remove of %s.\n", counted(files.size()).c_str());
            return;
        }
        std::printf("%s %zu of %s:\n", options.yes ? "Removing" : "To be removed:", pruned.size(),
                    counted(files.size()).c_str());
        printTable(pruned);
        std::fflush(stdout);
    }
    UnixFileManager manager;
    bool hasFailed = false;
    for (const LogFileInfo& file : pruned) {
        const std::error_code error =
            options.yes ? manager.removeItemAtPath(file.path) : std::error_code();
        if (options.json) {
            ordered_json line = description(file);
            line["removed"] = options.yes && !error;
            print(line);
        }
        if (error) {
            std::fprintf(stderr, "corvid: cannot remove %s: %s\n", printableText(file.path).c_str(),
                         error.message().c_str());
            hasFailed = true;
        }
    }
    if (hasFailed) {
        throw CommandFailure{};
    }
    if (!options.yes && !options.json) {
        std::printf("Nothing is removed yet; run it again with --yes.\n");
    }
}

/// What support wants to know besides the logs.
std::string about(const std::vector<LogFileInfo>& files, bool isRedacted) {
    utsname system{};
    uname(&system);
    std::string text = "Corvid " CORVID_VERSION "\n";
    text += std::string(system.sysname) + " " + system.release + " " + system.machine + "\n";
    text += isRedacted ? "The names of files are replaced by hashes.\n"
                       : "The names of files are as they are.\n";
    for (const LogFileInfo& file : files) {
        text += file.name + " " + std::to_string(file.size) + " bytes, begun " +
                formatted(file.created, "%Y-%m-%dT%H:%M:%SZ", true) +
                (file.isRunning ? ", running" : "") + "\n";
    }
    return text;
}

std::string contentsOf(const LogFileInfo& file, const LogRedactor* redactor) {
    if (redactor == nullptr) {
        return readFile(file.path).value_or("");
    }
    std::ifstream in(file.path, std::ios::binary);
    std::string contents;
    for (std::string line; std::getline(in, line);) {
        contents += redactor->redacted(line) + '\n';
    }
    return contents;
}

void bundle(const LogsOptions& options) {
    sayLogProblem();
    const auto now = std::chrono::system_clock::now();
    const std::string folder = requiredLogsFolder();
    const std::vector<LogFileInfo> files = logFilesIn(folder);
    if (files.empty()) {
        throw std::runtime_error("there are no logs in " + folder);
    }
    std::optional<LogRedactor> redactor;
    if (!options.noRedact) {
        redactor.emplace(redactionKey(), volumeFolders());
    }
    const std::string path = options.file.empty()
                                 ? formatted(now, "corvid-logs-%Y-%m-%d-%H%M%S.tar.gz", false)
                                 : options.file;
    TarGzWriter archive(path);
    archive.add("about.txt", about(files, redactor.has_value()), now);
    for (const LogFileInfo& file : files) {
        archive.add(file.name, contentsOf(file, redactor.has_value() ? &*redactor : nullptr),
                    file.created);
    }
    archive.finish();

    const std::string whole = std::filesystem::absolute(path).lexically_normal().string();
    if (options.json) {
        print({{"path", whole},
               {"files", files.size()},
               {"bytes", std::filesystem::file_size(whole)},
               {"redacted", redactor.has_value()}});
        return;
    }
    std::printf("%s\n%s, the names of files %s. Look into it before you send it.\n",
                printableText(whole).c_str(), counted(files.size()).c_str(),
                redactor.has_value() ? "replaced by hashes" : "as they are");
}

/// Turns what goes wrong into a message and the exit status.
std::function<void()> guarded(std::function<void()> body) {
    return [body = std::move(body)] {
        try {
            body();
        } catch (const UsageError&) {
            throw;
        } catch (const std::exception& error) {
            fail(printableText(error.what()));
        }
    };
}

} // namespace

void addLogsCommand(const Command& program) {
    const auto options = std::make_shared<LogsOptions>();
    const Command logs =
        program.addCommand("logs", "List the extension's log files; see also its sub-commands");
    logs.addFlag("--json", options->json, "One JSON object a file, one a line");
    logs.onRun(guarded([options] { list(*options); }));

    const Command tailCommand =
        logs.addCommand("tail", "Show the last lines and those that are written from now on");
    tailCommand.addOption("-n,--lines", options->lines, "How many last lines",
                          {.showsDefault = true});
    tailCommand.addFlag("--no-follow", options->noFollow, "The last lines only");
    tailCommand.addFlag("--redact", options->redact, "Replace the names of files by hashes");
    tailCommand.onRun(guarded([options] { tail(*options); }));

    const Command pruneCommand = logs.addCommand(
        "prune", "Remove old log files of processes that have ended; without --yes, say which");
    pruneCommand.addOption("--keep", options->keep, "At most that many files stay");
    pruneCommand.addOption("--older-than", options->olderThanDays,
                           "No file stays that was begun longer ago, in days");
    pruneCommand.addFlag("--yes", options->yes, "Do it");
    pruneCommand.addFlag("--json", options->json, "One JSON object a file, one a line");
    pruneCommand.onRun(guarded([options] { prune(*options); }));

    const Command bundleCommand = logs.addCommand(
        "bundle", "Pack all logs into an archive to send to support, without the names of files");
    bundleCommand.addOption("file", options->file,
                            "The archive; corvid-logs-DATE.tar.gz in this folder if not given");
    bundleCommand.addFlag("--no-redact", options->noRedact, "Leave the names of files in");
    bundleCommand.addFlag("--json", options->json, "One JSON object that says what was made");
    bundleCommand.onRun(guarded([options] { bundle(*options); }));
    logs.makeCommandsOptional();
}

} // namespace corvid
