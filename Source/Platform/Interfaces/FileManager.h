#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace corvid {

/// A file that this process made and that only grows; closed with its object.
/// One thread at a time, but for append() from a signal handler.
class AppendFile {
public:
    virtual ~AppendFile() = default;

    struct Appended {
        std::size_t bytes = 0; ///< how many of them are in the file now
        std::error_code error; ///< why not all of them are, if so
    };
    /// Writes `bytes` at the end of the file, as many as go in. Takes no lock and allocates
    /// nothing, so that a signal handler may call it.
    virtual Appended append(std::string_view bytes) noexcept = 0;

    /// Cuts the file back to its first `size` bytes.
    virtual std::error_code truncate(std::uint64_t size) = 0;

    /// True as long as `path` names this very file, and not another one or none.
    virtual bool isAtPath(const std::string& path) const = 0;
};

/// The questions about files that the system asks (`NSFileManager`, `NSFileHandle`). Paths are
/// absolute, in bytes. Any thread.
class FileManager {
public:
    virtual ~FileManager() = default;

    struct Existence {
        bool exists = false;
        bool isDirectory = false;
    };
    /// Follows links, as the platform does.
    virtual Existence fileExistsAtPath(const std::string& path) const = 0;

    /// Makes a folder, and those above it, readable by this user only.
    /// Nothing on success, else what went wrong, naming the path and the system's reason.
    virtual std::optional<std::string> createDirectoryAtPath(const std::string& path) = 0;

    /// Makes a file that was not there before, readable and writable by this user only; a link in
    /// the place of the file itself is not followed. Null, and the reason in `error`, when it
    /// cannot; `std::errc::file_exists` when the name is taken.
    virtual std::unique_ptr<AppendFile> createFileAtPath(const std::string& path,
                                                         std::error_code& error) = 0;

    struct RegularFile {
        std::string name;
        std::uint64_t size = 0; ///< bytes
        /// When it was made; its last change on a file system that does not keep that.
        std::chrono::system_clock::time_point created;
    };
    /// The regular files of a folder, links left out, in no order. Empty, and the reason in
    /// `error`, when the folder cannot be read.
    virtual std::vector<RegularFile>
    regularFilesOfDirectoryAtPath(const std::string& path, std::error_code& error) const = 0;

    /// Removes a file or a link.
    virtual std::error_code removeItemAtPath(const std::string& path) = 0;

    /// Where programs keep what is theirs and no document: "~/Library" on macOS, elsewhere the
    /// state folder of the XDG base directories with "corvid" below it. It need not exist.
    /// Nothing when the user has no home.
    virtual std::optional<std::string> applicationLibraryDirectory() const = 0;
};

} // namespace corvid
