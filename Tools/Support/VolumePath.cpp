#include "Tools/Support/VolumePath.h"

#include "Core/Base/VolumeMapping.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace corvid {

namespace fs = std::filesystem;

namespace {

bool isInside(const std::string& path, const std::string& folder) {
    const auto mapping = VolumeMapping::make(folder);
    return mapping && mapping->toVolume(path).has_value();
}

} // namespace

std::string absolutePath(const std::string& path, const std::string& workingFolder) {
    std::string text = (fs::path(workingFolder) / path).lexically_normal().string();
    if (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

std::string workingFolder() {
    std::error_code error;
    const fs::path real = fs::current_path(error);
    const char* shells = std::getenv("PWD");
    if (shells != nullptr && *shells == '/' && fs::equivalent(shells, real, error)) {
        return absolutePath(shells, "/");
    }
    return real.string();
}

std::optional<std::string> pathOnVolume(const std::string& path, const std::string& volume) {
    std::string asTyped = absolutePath(path, workingFolder());
    if (isInside(asTyped, volume)) {
        return asTyped;
    }
    std::error_code error;
    const fs::path typed(asTyped);
    const std::string real =
        (fs::weakly_canonical(typed.parent_path(), error) / typed.filename()).string();
    const std::string realVolume = fs::weakly_canonical(volume, error).string();
    for (const std::string& candidate : {real, fs::weakly_canonical(typed, error).string()}) {
        if (isInside(candidate, volume)) {
            return candidate;
        }
        if (isInside(candidate, realVolume)) {
            return volume + candidate.substr(realVolume == "/" ? 0 : realVolume.size());
        }
    }
    return std::nullopt;
}

} // namespace corvid
