#include "App/Reporting/CVFileSystemHelper.h"

#include "Platform/Interfaces/Platform.h"

namespace corvid {

std::optional<std::string> CVFileSystemHelper::applicationLibraryDirectory() {
    return platform().fileManager.applicationLibraryDirectory();
}

} // namespace corvid
