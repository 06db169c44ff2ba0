#include "Support/LogFollower.h"

#include "Core/Base/FileContents.h"
#include "Platform/Unix/FileEvents.h"
#include "Support/LogFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace corvid {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

LogFollower::LogFollower(std::string folder, Sink sink)
    : folder_(std::move(folder)), sink_(std::move(sink)), watch_(inotify_init1(IN_CLOEXEC)) {
    constexpr std::uint32_t kEvents = IN_CREATE | IN_MOVED_TO | IN_MODIFY | IN_DELETE |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    if (!watch_ || inotify_add_watch(watch_.get(), folder_.c_str(), kEvents) < 0) {
        fail(folder_);
    }
}

void LogFollower::readLast(std::size_t count) {
    const std::vector<LogFileInfo> files = logFilesIn(folder_);
    std::vector<std::string> last;
    for (const LogFileInfo& file : files) {
        const std::string contents = readFile(file.path).value_or("");
        const std::size_t end = contents.rfind('\n') + 1;
        Followed& followed = files_[file.name];
        followed.offset = contents.size();
        followed.lineBegun = contents.substr(end);
        newestOfProcess_[file.process] = file.name;

        std::vector<std::string> lines;
        std::size_t begin = end;
        while (lines.size() < count && begin > 0) {
            const std::size_t before =
                begin > 1 ? contents.rfind('\n', begin - 2) + 1 : std::size_t{0};
            lines.push_back(contents.substr(before, begin - before));
            begin = before;
        }
        last.insert(last.end(), lines.rbegin(), lines.rend());
        if (last.size() > count) {
            last.erase(last.begin(), last.end() - static_cast<std::ptrdiff_t>(count));
        }
    }
    std::for_each(last.begin(), last.end(), sink_);
}

void LogFollower::follow(const std::function<void()>& idle) {
    bool isGone = false;
    while (!isGone) {
        idle();
        if (!readFileEvents(watch_.get(), [&](const FileEvent& event) {
                isGone = isGone || (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
                if (!isGone) {
                    note(event);
                }
            })) {
            fail(folder_);
        }
    }
}

void LogFollower::note(const FileEvent& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        for (const LogFileInfo& file : logFilesIn(folder_)) {
            begin(file.name);
        }
        return;
    }
    const std::string name(event.name);
    if ((event.mask & IN_DELETE) != 0) {
        if (const auto gone = files_.find(name); gone != files_.end()) {
            read(name, gone->second);
            files_.erase(gone);
        }
    } else if (processOfLogFile(name).has_value()) {
        begin(name);
    }
}

void LogFollower::begin(const std::string& name) {
    // A process writes to its newest file only; the end of the one before comes first.
    const pid_t process = *processOfLogFile(name);
    std::string& newest = newestOfProcess_[process];
    const bool isNew = !files_.contains(name);
    if (isNew && !newest.empty() && files_.contains(newest)) {
        Followed& before = files_[newest];
        read(newest, before);
        before.file.reset();
    }
    if (isNew) {
        newest = name;
    }
    read(name, files_[name]);
}

void LogFollower::read(const std::string& name, Followed& followed) {
    if (!followed.file) {
        followed.file = OwnedFd(
            open((folder_ + "/" + name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    }
    std::array<char, 64 * 1024> buffer{};
    for (;;) {
        const ssize_t count = pread(followed.file.get(), buffer.data(), buffer.size(),
                                    static_cast<off_t>(followed.offset));
        if (count <= 0) {
            return;
        }
        followed.offset += static_cast<std::uint64_t>(count);
        followed.lineBegun.append(buffer.data(), static_cast<std::size_t>(count));
        std::size_t begun = 0;
        for (std::size_t end = followed.lineBegun.find('\n'); end != std::string::npos;
             end = followed.lineBegun.find('\n', begun)) {
            sink_(std::string_view(followed.lineBegun).substr(begun, end + 1 - begun));
            begun = end + 1;
        }
        followed.lineBegun.erase(0, begun);
    }
}

} // namespace corvid
