#include "Platform/Unix/UnixFileManager.h"

#include "Platform/Unix/LastError.h"
#include "Platform/Unix/UnixAppendFile.h"

#include <array>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid {

namespace {

std::chrono::system_clock::time_point timePoint(std::int64_t seconds, std::uint32_t nanoseconds) {
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds)));
}

std::optional<std::string> homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        return home;
    }
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] != '/') {
        return std::nullopt;
    }
    return std::string(found->pw_dir);
}

} // namespace

FileManager::Existence UnixFileManager::fileExistsAtPath(const std::string& path) const {
    struct stat status{};
    if (stat(path.c_str(), &status) != 0) {
        return {};
    }
    return {true, S_ISDIR(status.st_mode)};
}

std::optional<std::string> UnixFileManager::createDirectoryAtPath(const std::string& path) {
    std::size_t end = 0;
    do {
        end = path.find('/', end + 1);
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0700) == 0) {
            continue;
        }
        // A folder that is there already is as good, whatever mkdir() says of it first: on a
        // read-only file system it says just that.
        const std::error_code reason = lastError();
        if (!fileExistsAtPath(part).isDirectory) {
            return "\"" + part + "\": " + reason.message();
        }
    } while (end != std::string::npos);
    return std::nullopt;
}

std::unique_ptr<AppendFile> UnixFileManager::createFileAtPath(const std::string& path,
                                                              std::error_code& error) {
    return UnixAppendFile::create(path, error);
}

std::vector<FileManager::RegularFile>
UnixFileManager::regularFilesOfDirectoryAtPath(const std::string& path,
                                               std::error_code& error) const {
    error.clear();
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
    if (folder == nullptr) {
        error = lastError();
        return {};
    }
    std::vector<RegularFile> files;
    while (const dirent* entry = readdir(folder.get())) {
        struct statx status{};
        if (statx(dirfd(folder.get()), entry->d_name, AT_SYMLINK_NOFOLLOW,
                  STATX_BASIC_STATS | STATX_BTIME, &status) != 0 ||
            !S_ISREG(status.stx_mode)) {
            continue;
        }
        const auto& moment =
            (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
        files.push_back({entry->d_name, status.stx_size, timePoint(moment.tv_sec, moment.tv_nsec)});
    }
    return files;
}

std::error_code UnixFileManager::removeItemAtPath(const std::string& path) {
    return unlink(path.c_str()) == 0 ? std::error_code() : lastError();
}

std::optional<std::string> UnixFileManager::applicationLibraryDirectory() const {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
        return std::string(state) + "/corvid";
    }
    if (const std::optional<std::string> home = homeDirectory()) {
        return *home + "/.local/state/corvid";
    }
    return std::nullopt;
}

} // namespace corvid
