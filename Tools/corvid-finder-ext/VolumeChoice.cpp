#include "VolumeChoice.h"

#include "Core/Base/PrintableText.h"
#include "Tools/Support/VolumePath.h"

namespace corvid {

std::string volumeConflict(const std::string& extensionFolder, const std::string& hostFolder) {
    return "The extension was given the volume " + printableText(extensionFolder) +
           ", but the host application serves " + printableText(hostFolder) +
           "; start both with the same folder, or the extension without one.";
}

std::variant<VolumeChoice, std::string> chooseVolume(const VolumeSources& sources) {
    std::string folder;
    std::string source;
    bool isFixed = false;
    if (sources.argument) {
        folder = absolutePath(*sources.argument, sources.workingFolder);
        source = "--volume";
        isFixed = true;
    } else if (sources.environment && !sources.environment->empty()) {
        folder = *sources.environment;
        source = "CVD_VOLUME_PATH";
        isFixed = true;
    } else if (sources.host) {
        folder = *sources.host;
        source = "the host application";
    } else if (sources.hasUsualFolder) {
        folder = kVolumeRoot;
    } else if (sources.home) {
        folder = *sources.home + "/Corvid";
        source = "HOME";
    } else {
        return "There is no volume: name its folder with --volume DIR.";
    }
    const auto volume = VolumeMapping::make(folder);
    if (!volume) {
        return "The volume cannot be \"" + printableText(folder) + "\", which " + source +
               " names: it must be an absolute path without \"..\" and without a line break.";
    }
    if (isFixed && sources.host && volume->localFolder() != *sources.host) {
        return volumeConflict(volume->localFolder(), *sources.host);
    }
    return VolumeChoice{*volume, isFixed};
}

} // namespace corvid
