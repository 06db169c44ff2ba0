#pragma once

#include <optional>
#include <string>

namespace corvid {

/// The absolute path that `path` means, taken against `workingFolder` when it is relative, without
/// empty, "." and ".." components and without a "/" at the end. Links are not followed.
std::string absolutePath(const std::string& path, const std::string& workingFolder);

/// The folder that the user is in, by the path that the user came on ($PWD) where that is true.
std::string workingFolder();

/// Where `path`, as a user typed it, lies on the volume `volume`: as it is, or, when only links
/// lead there, by way of the folders that those stand for. Nothing when it is not on the volume.
/// The item itself need not exist, and when it is a link it is meant, not what it points to.
std::optional<std::string> pathOnVolume(const std::string& path, const std::string& volume);

} // namespace corvid
