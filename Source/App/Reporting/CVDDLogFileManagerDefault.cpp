#include "App/Reporting/CVDDLogFileManagerDefault.h"

#include "Platform/Interfaces/Platform.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace corvid {

namespace {

/// "a.log" for 1, "a_2.log" for 2.
std::string withNumber(const std::string& name, std::uint64_t number) {
    if (number == 1) {
        return name;
    }
    const std::size_t dot = std::min(name.rfind('.'), name.size());
    return name.substr(0, dot) + "_" + std::to_string(number) + name.substr(dot);
}

} // namespace

CVDDLogFileManagerDefault::CVDDLogFileManagerDefault(std::string logsDirectory, std::string problem)
    : logsDirectory_(std::move(logsDirectory)), directoryProblem_(std::move(problem)) {}

std::string CVDDLogFileManagerDefault::pathOf(std::string_view name) const {
    return logsDirectory_ + "/" + std::string(name);
}

CVDDLogFileManagerDefault::LogFile
CVDDLogFileManagerDefault::createNewLogFile(std::error_code& error) {
    FileManager& files = platform().fileManager;
    if (!files.fileExistsAtPath(logsDirectory_).isDirectory) {
        files.createDirectoryAtPath(logsDirectory_);
    }
    error = deleteOldLogFiles();
    if (error) {
        return {};
    }
    const std::string name = newLogFileName().value();
    if (name != lastName_) {
        lastName_ = name;
        uses_ = 0;
    }
    // The count of uses never goes back, even when the first of these files is deleted by now: a
    // later file does not get an earlier name.
    for (;; ++uses_) {
        const std::string fresh = withNumber(name, uses_ + 1);
        LogFile made{pathOf(fresh), files.createFileAtPath(pathOf(fresh), error)};
        if (made.file != nullptr) {
            ++uses_;
            madeHere_.push_back(fresh);
            return made;
        }
        if (error != std::errc::file_exists) {
            return {};
        }
    }
}

std::error_code CVDDLogFileManagerDefault::deleteOldLogFiles() {
    if (maximumNumberOfLogFiles_ == 0) {
        return {};
    }
    FileManager& files = platform().fileManager;
    std::error_code error;
    std::vector<FileManager::RegularFile> found =
        files.regularFilesOfDirectoryAtPath(logsDirectory_, error);
    if (error) {
        return error;
    }
    std::erase_if(found, [this](const auto& file) { return !mayDelete(file.name); });
    const auto isThere = [&found](const std::string& name) {
        return std::any_of(found.begin(), found.end(),
                           [&name](const auto& file) { return file.name == name; });
    };
    std::erase_if(madeHere_, [&isThere](const std::string& name) { return !isThere(name); });

    const auto age = [this](const FileManager::RegularFile& file) {
        const auto own = std::find(madeHere_.begin(), madeHere_.end(), file.name);
        // What an earlier process left is older than anything made here, whatever its date says.
        return own == madeHere_.end()
                   ? std::tuple(std::ptrdiff_t{-1}, file.created, file.name)
                   : std::tuple(std::distance(madeHere_.begin(), own), file.created, file.name);
    };
    std::sort(found.begin(), found.end(),
              [&age](const auto& a, const auto& b) { return age(a) < age(b); });

    std::size_t kept = found.size();
    for (auto file = found.begin(); file != found.end() && kept >= maximumNumberOfLogFiles_;
         ++file) {
        if (const std::error_code failure = files.removeItemAtPath(pathOf(file->name))) {
            error = failure;
        } else {
            --kept;
        }
    }
    return kept < maximumNumberOfLogFiles_ ? std::error_code() : error;
}

} // namespace corvid
