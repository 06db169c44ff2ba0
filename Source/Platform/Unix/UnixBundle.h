#pragma once

#include "Platform/Interfaces/Bundle.h"
#include "Platform/Unix/StringTables.h"

#include <memory>
#include <mutex>

namespace corvid {

/// The resources that are installed with the programs, in the folder `../share/corvid` beside the
/// folder of the running program (so that a build tree and an installation are alike).
class UnixBundle final : public Bundle {
public:
    /// A bundle with this identifier (nothing for none) and the resources of the running program.
    explicit UnixBundle(std::optional<std::string> identifier);
    /// The same with its resources in `resourceFolder`, an absolute path.
    UnixBundle(std::optional<std::string> identifier, std::string resourceFolder);

    const std::string& resourceFolder() const { return resourceFolder_; }

    std::optional<std::string> bundleIdentifier() const override;
    /// Looks for `name` and `name`.png, in the folder itself and in "badges" below it.
    std::shared_ptr<Image> imageNamed(std::string_view name) const override;
    /// In the language that the environment asked for at the first call.
    std::string localizedString(std::string_view key) const override;

private:
    const std::optional<std::string> identifier_;
    const std::string resourceFolder_;
    // Read when first asked for: the extension itself never asks.
    mutable std::once_flag tablesOnce_;
    mutable std::unique_ptr<StringTables> tables_;
};

} // namespace corvid
