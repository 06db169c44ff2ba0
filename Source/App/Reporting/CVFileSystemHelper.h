#pragma once

#include <optional>
#include <string>

namespace corvid {

/// Where the programs of this family keep their files.
class CVFileSystemHelper {
public:
    /// The absolute path of the library folder, see FileManager::applicationLibraryDirectory().
    static std::optional<std::string> applicationLibraryDirectory();
};

} // namespace corvid
