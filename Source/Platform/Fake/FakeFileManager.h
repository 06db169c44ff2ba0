#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Fake/CallLog.h"
#include "Platform/Interfaces/Clock.h"
#include "Platform/Interfaces/FileManager.h"

#include <map>
#include <variant>

namespace corvid {

/// Files and folders in memory. It holds "/" and "/home/me" at first; the library folder is
/// "/home/me/Library". Of what it is asked, it records what changes something:
///
///     createDirectory /home/me/Library/Logs
///     createFile /home/me/Library/Logs/a.log
///     removeItem /home/me/Library/Logs/a.log
///
/// Any thread.
class FakeFileManager final : public FileManager {
public:
    /// Records into `calls` and dates files by `clock`; both must outlive it.
    FakeFileManager(CallLog& calls, const Clock& clock);

    Existence fileExistsAtPath(const std::string& path) const override;
    std::optional<std::string> createDirectoryAtPath(const std::string& path) override;
    std::unique_ptr<AppendFile> createFileAtPath(const std::string& path,
                                                 std::error_code& error) override;
    std::vector<RegularFile> regularFilesOfDirectoryAtPath(const std::string& path,
                                                           std::error_code& error) const override;
    std::error_code removeItemAtPath(const std::string& path) override;
    std::optional<std::string> applicationLibraryDirectory() const override;

    void setApplicationLibraryDirectory(std::optional<std::string> path);
    /// Puts a file there, replacing another; its folder must exist.
    void putFile(const std::string& path, std::string contents);
    /// The contents of a file; nothing when there is none.
    std::optional<std::string> contentsOfFile(const std::string& path) const;
    /// Takes away a file, or a folder with all that it holds.
    void removeTree(const std::string& path);
    /// From now on no folder and no file can be made (but what exists goes on working), for this
    /// reason; a default one ends it.
    void failCreationWith(std::error_code reason);
    /// From now on all files together can grow by that many bytes and then no further, as on a
    /// full disk; nothing ends it.
    void setFreeSpace(std::optional<std::uint64_t> bytes);

private:
    struct File {
        std::string contents;
        std::chrono::system_clock::time_point created;
    };
    struct Folder {};
    using Node = std::variant<Folder, std::shared_ptr<File>>;
    class OpenFile;

    AppendFile::Appended append(File& file, std::string_view bytes);
    const std::shared_ptr<File>* fileAt(const std::string& path) const CORVID_REQUIRES(mutex_);
    bool isFolder(const std::string& path) const CORVID_REQUIRES(mutex_);

    CallLog& calls_;
    const Clock& clock_;
    mutable Mutex mutex_;
    std::map<std::string, Node> nodes_ CORVID_GUARDED_BY(mutex_);
    std::optional<std::string> library_ CORVID_GUARDED_BY(mutex_) = "/home/me/Library";
    std::error_code creationFailure_ CORVID_GUARDED_BY(mutex_);
    std::optional<std::uint64_t> freeSpace_ CORVID_GUARDED_BY(mutex_);
};

} // namespace corvid
