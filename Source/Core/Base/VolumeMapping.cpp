#include "Core/Base/VolumeMapping.h"

#include <utility>

namespace corvid {

namespace {

std::string_view withoutFinalSlash(std::string_view path) {
    if (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    return path;
}

/// True for "" and for "/a/b", where every component names an entry of the folder before it.
bool isPlain(std::string_view path) {
    while (!path.empty()) {
        if (path.front() != '/') {
            return false;
        }
        path.remove_prefix(1);
        const std::string_view component = path.substr(0, path.find('/'));
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        path.remove_prefix(component.size());
    }
    return true;
}

std::optional<std::string> moved(std::string_view path, std::string_view from,
                                 std::string_view to) {
    if (path.empty() || path.front() != '/') {
        return std::nullopt;
    }
    path = withoutFinalSlash(path);
    // The root's own "/" is the separator before each of its entries.
    const std::string_view fromPrefix = from == "/" ? std::string_view() : from;
    const std::string_view toPrefix = to == "/" ? std::string_view() : to;
    if (path == from) {
        return std::string(to);
    }
    if (!path.starts_with(fromPrefix) || !isPlain(path.substr(fromPrefix.size()))) {
        return std::nullopt;
    }
    return std::string(toPrefix) + std::string(path.substr(fromPrefix.size()));
}

} // namespace

std::optional<VolumeMapping> VolumeMapping::make(std::string_view localFolder) {
    localFolder = withoutFinalSlash(localFolder);
    const bool isRoot = localFolder == "/";
    if (localFolder.empty() || (!isRoot && !isPlain(localFolder)) ||
        localFolder.find('\0') != std::string_view::npos ||
        localFolder.find('\n') != std::string_view::npos) {
        return std::nullopt;
    }
    return VolumeMapping(std::string(localFolder));
}

VolumeMapping::VolumeMapping(std::string localFolder) : localFolder_(std::move(localFolder)) {}

std::optional<std::string> VolumeMapping::toVolume(std::string_view localPath) const {
    return moved(localPath, localFolder_, kVolumeRoot);
}

std::optional<std::string> VolumeMapping::toLocal(std::string_view volumePath) const {
    return moved(volumePath, kVolumeRoot, localFolder_);
}

} // namespace corvid
