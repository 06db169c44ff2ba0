#include "Platform/Unix/RuntimeFolder.h"

#include "Platform/Unix/Deadline.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace corvid {

namespace {

constexpr std::chrono::milliseconds kLockPatience{1000};

std::string systemTemporaryFolder() {
    std::error_code error;
    const auto folder = std::filesystem::temp_directory_path(error);
    return !error && folder.is_absolute() ? folder.string() : "/tmp";
}

RuntimeFolder::Opened failed(const std::string& path, const std::string& what) {
    return {OwnedFd(), path + ": " + what, false};
}

// For a call of the system that failed with `error`.
RuntimeFolder::Opened failed(const std::string& path, int error) {
    const bool isAbsence = error == ENOENT || error == ENOTDIR || error == ELOOP;
    return {OwnedFd(), path + ": " + std::strerror(error), !isAbsence};
}

std::string octal(mode_t mode) {
    std::string digits = "0";
    for (int shift = 6; shift >= 0; shift -= 3) {
        digits += static_cast<char>('0' + ((mode >> shift) & 7U));
    }
    return digits;
}

RuntimeFolder::Opened openChecked(int parent, const std::string& name, const std::string& path,
                                  uid_t user, RuntimeFolder::IfMissing ifMissing) {
    if (ifMissing == RuntimeFolder::IfMissing::create && mkdirat(parent, name.c_str(), 0700) != 0 &&
        errno != EEXIST) {
        return failed(path, std::string("cannot be made: ") + std::strerror(errno));
    }
    OwnedFd fd(
        openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        if (errno == ELOOP || errno == ENOTDIR) {
            return failed(path, "is not a folder but a link or a file; remove it");
        }
        return failed(path, errno);
    }
    struct stat status{};
    if (fstat(fd.get(), &status) != 0) {
        return failed(path, errno);
    }
    if (status.st_uid != user) {
        return failed(path, "belongs to user " + std::to_string(status.st_uid) +
                                ", not to this one (" + std::to_string(user) +
                                "); have its owner remove it");
    }
    if ((status.st_mode & 077U) != 0) {
        return failed(path, "is open to other users (mode " + octal(status.st_mode) +
                                "); make it 0700 or remove it");
    }
    return {std::move(fd), {}, false};
}

} // namespace

RuntimeFolder RuntimeFolder::ofThisUser() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/') {
        return RuntimeFolder(std::string(runtime) + "/corvid");
    }
    return RuntimeFolder(systemTemporaryFolder() + "/corvid-" + std::to_string(geteuid()));
}

RuntimeFolder::RuntimeFolder(std::string path) : path_(std::move(path)), user_(geteuid()) {}

std::string RuntimeFolder::pathOf(std::string_view name) const {
    return path_ + "/" + std::string(name);
}

RuntimeFolder::Opened RuntimeFolder::open(IfMissing ifMissing) const {
    const std::size_t slash = path_.rfind('/');
    const std::string parentPath = slash == 0 ? "/" : path_.substr(0, slash);
    const OwnedFd parent(::open(parentPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent) {
        return failed(parentPath, errno);
    }
    return openChecked(parent.get(), path_.substr(slash + 1), path_, user_, ifMissing);
}

RuntimeFolder::Opened RuntimeFolder::openFolder(std::string_view name, IfMissing ifMissing) const {
    const Opened self = open(ifMissing);
    if (!self.fd) {
        return {OwnedFd(), self.problem, self.isUnknown};
    }
    return openChecked(self.fd.get(), std::string(name), pathOf(name), user_, ifMissing);
}

bool RuntimeFolder::lock(int folder) {
    const Deadline deadline(kLockPatience);
    while (flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.passed()) {
            return false;
        }
        constexpr std::timespec kPause{0, 1'000'000};
        nanosleep(&kPause, nullptr);
    }
    return true;
}

void RuntimeFolder::unlock(int folder) {
    flock(folder, LOCK_UN);
}

bool RuntimeFolder::isStillGood(int folder) const {
    struct stat status{};
    return fstat(folder, &status) == 0 && status.st_nlink > 0 && status.st_uid == user_ &&
           (status.st_mode & 077U) == 0;
}

} // namespace corvid
