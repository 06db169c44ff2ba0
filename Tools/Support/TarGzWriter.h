#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace corvid {

/// Writes a gzip-compressed tar archive (POSIX.1-1988 "ustar") of plain files. A failure is a
/// std::runtime_error that names the archive. One thread.
class TarGzWriter {
public:
    /// Makes the archive at `path`, readable by this user only; a file that is there already is a
    /// failure.
    explicit TarGzWriter(const std::string& path);
    /// Removes the archive again, unless finish() was called.
    ~TarGzWriter();
    TarGzWriter(const TarGzWriter&) = delete;
    TarGzWriter& operator=(const TarGzWriter&) = delete;

    /// Adds a file called `name` (at most 100 bytes) with these contents.
    void add(std::string_view name, std::string_view contents,
             std::chrono::system_clock::time_point modified);

    /// Writes the end of the archive and closes it.
    void finish();

private:
    struct Stream;
    void write(std::string_view bytes);

    const std::string path_;
    std::unique_ptr<Stream> stream_;
};

} // namespace corvid
