#include "Platform/Unix/VolumeFile.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace corvid {

namespace {

// Locks of open file descriptions: they can be asked about without being taken, so that a reader
// never stands in a publisher's way (fcntl(2)).
struct flock wholeFile() {
    struct flock lock{};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

bool isLocked(int file) {
    struct flock lock = wholeFile();
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::optional<PublishedVolume> parsed(std::string_view text) {
    std::array<std::string_view, 3> lines;
    for (std::string_view& line : lines) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        line = text.substr(0, end);
        text.remove_prefix(end + 1);
    }
    PublishedVolume volume{std::string(lines[0]), lines[1] == "fixed", 0};
    const auto number =
        std::from_chars(lines[2].data(), lines[2].data() + lines[2].size(), volume.process);
    const bool isGood = volume.folder.starts_with('/') &&
                        (volume.isFixed || lines[1] == "default") && number.ec == std::errc() &&
                        volume.process > 0;
    return isGood ? std::optional(volume) : std::nullopt;
}

std::optional<PublishedVolume> readFrom(int folder, const std::string& name,
                                        std::string* problem = nullptr) {
    // For reading only: to close a file that was opened for writing is a change to the watchers.
    const OwnedFd file(
        openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file && problem != nullptr && errno != ENOENT && errno != ELOOP) {
        *problem = name + ": " + std::strerror(errno);
    }
    if (!file || !isLocked(file.get())) {
        return std::nullopt;
    }
    std::array<char, PATH_MAX + 64> buffer{};
    const ssize_t size = pread(file.get(), buffer.data(), buffer.size(), 0);
    return size < 0 ? std::nullopt
                    : parsed(std::string_view(buffer.data(), static_cast<std::size_t>(size)));
}

} // namespace

VolumeFile::VolumeFile(RuntimeFolder folder, std::string name)
    : folder_(std::move(folder)), name_(std::move(name)) {}

VolumeFile VolumeFile::ofHost(RuntimeFolder folder) {
    return {std::move(folder), "host.volume"};
}

VolumeFile VolumeFile::ofExtension(RuntimeFolder folder) {
    return {std::move(folder), "finder-ext.volume"};
}

VolumeFile::Published VolumeFile::publish(const std::string& folder, bool isFixed) const {
    Published result;
    if (!folder.starts_with('/') ||
        folder.find_first_of(std::string_view("\n\0", 2)) != folder.npos ||
        folder.size() >= PATH_MAX) {
        result.problem = "\"" + folder +
                         "\" cannot be the volume: name a folder by an absolute path without a "
                         "line break";
        return result;
    }
    auto opened = folder_.open(RuntimeFolder::IfMissing::create);
    if (!opened.fd) {
        result.problem = opened.problem;
        return result;
    }
    const int directory = opened.fd.get();
    if (!RuntimeFolder::lock(directory)) {
        result.problem =
            folder_.path() + ": another process has held it for a second; end the one that hangs";
        return result;
    }
    result.existing = readFrom(directory, name_);
    if (!result.existing) {
        std::unique_ptr<Publication> publication(
            new Publication(folder_, std::move(opened.fd), name_));
        publication->volume_ = folder;
        publication->isFixed_ = isFixed;
        result.problem = publication->write();
        RuntimeFolder::unlock(directory);
        if (result.problem.empty()) {
            result.publication = std::move(publication);
        }
    }
    return result;
}

std::optional<PublishedVolume> VolumeFile::read(std::string* problem) const {
    const auto opened = folder_.open(RuntimeFolder::IfMissing::fail);
    if (opened.isUnknown && problem != nullptr) {
        *problem = opened.problem;
    }
    return opened.fd ? readFrom(opened.fd.get(), name_, problem) : std::nullopt;
}

std::unique_ptr<VolumeFile::Watcher> VolumeFile::watch(DispatchQueue& queue,
                                                       Callback onChange) const {
    return std::make_unique<Watcher>(*this, queue, std::move(onChange));
}

VolumeFile::Publication::Publication(RuntimeFolder runtimeFolder, OwnedFd folder, std::string name)
    : runtimeFolder_(std::move(runtimeFolder)), folder_(std::move(folder)), name_(std::move(name)),
      process_(getpid()) {}

VolumeFile::Publication::~Publication() {
    if (file_ && process_ == getpid() && RuntimeFolder::lock(folder_.get())) {
        // Another may have published after the file was removed.
        if (isInPlace()) {
            unlinkat(folder_.get(), name_.c_str(), 0);
        }
        RuntimeFolder::unlock(folder_.get());
    }
}

std::string VolumeFile::Publication::update(const std::string& folder, bool isFixed) {
    volume_ = folder;
    isFixed_ = isFixed;
    if (!isInPlace()) {
        return keep().problem;
    }
    if (!RuntimeFolder::lock(folder_.get())) {
        return name_ + ": another process has held its folder for a second; end the one that hangs";
    }
    std::string problem = write();
    RuntimeFolder::unlock(folder_.get());
    return problem;
}

// An open file keeps its number, so that no other can be taken for it.
bool VolumeFile::Publication::isInPlace() const {
    struct stat ours{};
    struct stat there{};
    return file_ && fstat(file_.get(), &ours) == 0 &&
           lstat(runtimeFolder_.pathOf(name_).c_str(), &there) == 0 &&
           ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
}

VolumeFile::Publication::Kept VolumeFile::Publication::keep() {
    Kept kept;
    if (isInPlace()) {
        return kept;
    }
    auto opened = runtimeFolder_.open(RuntimeFolder::IfMissing::create);
    if (!opened.fd) {
        kept.problem = opened.problem;
        return kept;
    }
    if (!RuntimeFolder::lock(opened.fd.get())) {
        kept.problem = runtimeFolder_.path() +
                       ": another process has held it for a second; end the one that hangs";
        return kept;
    }
    kept.other = readFrom(opened.fd.get(), name_, &kept.problem);
    if (kept.other) {
        file_.reset();
        kept.problem = runtimeFolder_.pathOf(name_) + " was removed, and process " +
                       std::to_string(kept.other->process) +
                       " has published another volume since; end one of the two";
    } else if (kept.problem.empty()) {
        folder_ = std::move(opened.fd);
        kept.problem = write();
        RuntimeFolder::unlock(folder_.get());
    }
    return kept;
}

// Under the lock of the folder. The file is whole and locked before it has its name.
std::string VolumeFile::Publication::write() {
    const std::string temporary = "." + name_;
    unlinkat(folder_.get(), temporary.c_str(), 0);
    OwnedFd file(openat(folder_.get(), temporary.c_str(),
                        O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    const std::string text =
        volume_ + (isFixed_ ? "\nfixed\n" : "\ndefault\n") + std::to_string(process_) + "\n";
    struct flock lock = wholeFile();
    const bool isWritten =
        file && fcntl(file.get(), F_OFD_SETLK, &lock) == 0 &&
        ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        renameat(folder_.get(), temporary.c_str(), folder_.get(), name_.c_str()) == 0;
    if (!isWritten) {
        std::string problem = name_ + " cannot be written: " + std::strerror(errno);
        unlinkat(folder_.get(), temporary.c_str(), 0);
        return problem;
    }
    file_ = ForkClosedFd(std::move(file));
    return {};
}

VolumeFile::Watcher::Watcher(VolumeFile file, DispatchQueue& queue, Callback onChange)
    : file_(std::move(file)), onChange_(std::move(onChange)),
      watcher_(file_.folder_, queue, [this] { look(); }) {}

void VolumeFile::Watcher::look() {
    std::string problem;
    auto now = file_.read(&problem);
    if (!problem.empty()) {
        // Not known now: what was there is taken to be there still.
        now = last_;
        watcher_.lookAgain();
    }
    watcher_.watchProcesses(now ? std::vector{now->process} : std::vector<pid_t>());
    const bool isSame = hasLooked_ && now.has_value() == last_.has_value() &&
                        (!now || (now->folder == last_->folder && now->isFixed == last_->isFixed &&
                                  now->process == last_->process));
    hasLooked_ = true;
    if (!isSame) {
        last_ = now;
        onChange_(now);
    }
}

} // namespace corvid
