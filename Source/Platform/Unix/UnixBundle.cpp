#include "Platform/Unix/UnixBundle.h"

#include "Platform/Unix/UnixProcessInfo.h"

#include <filesystem>
#include <utility>

namespace corvid {

namespace {

std::string resourcesOfProgram() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return (program.parent_path().parent_path() / "share/corvid").string();
}

} // namespace

UnixBundle::UnixBundle(std::optional<std::string> identifier)
    : UnixBundle(std::move(identifier), resourcesOfProgram()) {}

UnixBundle::UnixBundle(std::optional<std::string> identifier, std::string resourceFolder)
    : identifier_(std::move(identifier)), resourceFolder_(std::move(resourceFolder)) {}

std::optional<std::string> UnixBundle::bundleIdentifier() const {
    return identifier_;
}

std::shared_ptr<Image> UnixBundle::imageNamed(std::string_view name) const {
    // A name, not a path: it may not lead out of the resources.
    if (name.empty() || name.find('/') != std::string_view::npos) {
        return nullptr;
    }
    for (const std::string_view folder : {"/", "/badges/"}) {
        for (const std::string_view ending : {"", ".png"}) {
            std::string path = resourceFolder_;
            path.append(folder).append(name).append(ending);
            std::error_code error;
            if (std::filesystem::is_regular_file(path, error)) {
                auto image = std::make_shared<Image>();
                image->name = name;
                image->path = std::move(path);
                return image;
            }
        }
    }
    return nullptr;
}

std::string UnixBundle::localizedString(std::string_view key) const {
    std::call_once(tablesOnce_, [this] {
        tables_ =
            std::make_unique<StringTables>(resourceFolder_, preferredLanguages(UnixProcessInfo()));
    });
    return tables_->localizedString(key);
}

} // namespace corvid
