#include "Platform/Unix/UnixAppendFile.h"

#include "Platform/Unix/LastError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvid {

std::unique_ptr<AppendFile> UnixAppendFile::create(const std::string& path,
                                                   std::error_code& error) {
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        error = lastError();
        return nullptr;
    }
    error.clear();
    return std::unique_ptr<AppendFile>(new UnixAppendFile(descriptor));
}

UnixAppendFile::~UnixAppendFile() {
    close(descriptor_);
}

AppendFile::Appended UnixAppendFile::append(std::string_view bytes) noexcept {
    Appended done;
    while (done.bytes < bytes.size()) {
        const ssize_t count =
            write(descriptor_, bytes.data() + done.bytes, bytes.size() - done.bytes);
        if (count > 0) {
            done.bytes += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            done.error = count == 0 ? std::make_error_code(std::errc::io_error) : lastError();
            break;
        }
    }
    return done;
}

std::error_code UnixAppendFile::truncate(std::uint64_t size) {
    return ftruncate(descriptor_, static_cast<off_t>(size)) == 0 ? std::error_code() : lastError();
}

bool UnixAppendFile::isAtPath(const std::string& path) const {
    struct stat own{};
    struct stat named{};
    return fstat(descriptor_, &own) == 0 && lstat(path.c_str(), &named) == 0 &&
           own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

} // namespace corvid
