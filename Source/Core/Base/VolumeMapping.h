#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// The folder that the controller and the host application know the volume by.
inline constexpr std::string_view kVolumeRoot = "/Volumes/Corvid";

/// Maps item paths between the volume as the controller knows it ("/Volumes/Corvid/…") and the
/// local folder that stands for it, by whole path components: "/Volumes/Corvid2" is not on the
/// volume. Paths are bytes; nothing is looked up in the file system. Immutable; any thread.
class VolumeMapping {
public:
    /// A mapping to the absolute path `localFolder`; a "/" at its end does not matter.
    /// Nothing when the path is not absolute, holds a NUL or a newline (which the file that names
    /// the folder could not carry), or has an empty, "." or ".." component.
    static std::optional<VolumeMapping> make(std::string_view localFolder);

    /// The local folder, without a "/" at its end unless it is the root itself.
    const std::string& localFolder() const { return localFolder_; }

    /// The item's path on the volume, and the way back: without a "/" at the end.
    /// Nothing when `path` is not the folder itself or below it, or has an empty, "." or ".."
    /// component, which could lead out of the folder.
    std::optional<std::string> toVolume(std::string_view localPath) const;
    std::optional<std::string> toLocal(std::string_view volumePath) const;

    friend bool operator==(const VolumeMapping&, const VolumeMapping&) = default;

private:
    explicit VolumeMapping(std::string localFolder);
    std::string localFolder_;
};

} // namespace corvid
