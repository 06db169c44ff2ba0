#pragma once

#include "Platform/Interfaces/FileManager.h"

namespace corvid {

/// The file system of the machine.
class UnixFileManager final : public FileManager {
public:
    Existence fileExistsAtPath(const std::string& path) const override;
    std::optional<std::string> createDirectoryAtPath(const std::string& path) override;
    std::unique_ptr<AppendFile> createFileAtPath(const std::string& path,
                                                 std::error_code& error) override;
    std::vector<RegularFile> regularFilesOfDirectoryAtPath(const std::string& path,
                                                           std::error_code& error) const override;
    std::error_code removeItemAtPath(const std::string& path) override;
    /// `$XDG_STATE_HOME/corvid`, else `~/.local/state/corvid`, the home being `$HOME`, else the
    /// one in the user database. A variable that is no absolute path counts as not set
    /// (https://specifications.freedesktop.org/basedir-spec/latest/).
    std::optional<std::string> applicationLibraryDirectory() const override;
};

} // namespace corvid
