#pragma once

#include "Core/Base/VolumeMapping.h"

#include <optional>
#include <string>
#include <variant>

namespace corvid {

/// Where the folder of the volume may be named.
struct VolumeSources {
    std::optional<std::string> argument;    ///< --volume
    std::optional<std::string> environment; ///< CVD_VOLUME_PATH; empty counts as absent
    std::optional<std::string> host;        ///< what a running host names
    std::string workingFolder;              ///< for an argument that is relative
    bool hasUsualFolder = false;            ///< whether /Volumes/Corvid exists
    std::optional<std::string> home;
};

struct VolumeChoice {
    VolumeMapping volume;
    /// True when the folder was named to the extension itself; then it does not follow a host.
    bool isFixed = false;
};

/// The folder: the one of --volume, else of CVD_VOLUME_PATH, else of the host, else
/// /Volumes/Corvid when it exists, else "Corvid" in the home folder. Or, where that cannot be, a
/// sentence that names what is wrong and the remedy; a host that names another folder than the
/// first two is one.
std::variant<VolumeChoice, std::string> chooseVolume(const VolumeSources& sources);

/// What to say when the extension and its host name different folders.
std::string volumeConflict(const std::string& extensionFolder, const std::string& hostFolder);

} // namespace corvid
