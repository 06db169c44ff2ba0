#pragma once

#include "Platform/Interfaces/FileManager.h"

namespace corvid {

/// `NSFileManager`, and POSIX where a caller wants the system's error number.
class MacFileManager final : public FileManager {
public:
    Existence fileExistsAtPath(const std::string& path) const override;
    /// On failure the debug description of Foundation's error, which names path and reason.
    std::optional<std::string> createDirectoryAtPath(const std::string& path) override;
    std::unique_ptr<AppendFile> createFileAtPath(const std::string& path,
                                                 std::error_code& error) override;
    std::vector<RegularFile> regularFilesOfDirectoryAtPath(const std::string& path,
                                                           std::error_code& error) const override;
    std::error_code removeItemAtPath(const std::string& path) override;
    /// In a sandbox the Library folder of the program's container.
    std::optional<std::string> applicationLibraryDirectory() const override;
};

} // namespace corvid
