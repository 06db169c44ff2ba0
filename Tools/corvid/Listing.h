#pragma once

#include "Tools/Support/LinkSession.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace corvid {

/// The items of a folder, or a single one, as `corvid ls` and `corvid watch` show them.
class Listing {
public:
    struct Entry {
        std::string name;
        bool isFolder = false;
        bool isLink = false;
    };

    /// Reads the folder `path`; with `showsAll` its hidden items as well. Or the one item `path`,
    /// when it is no folder. Nothing when it cannot be read; then `errno` says why.
    static std::optional<Listing> read(const std::string& path, bool isFolder, bool showsAll);

    /// The folder whose items these are.
    const std::string& folder() const { return folder_; }
    /// Folders first, then by name.
    const std::vector<Entry>& entries() const { return entries_; }

    /// One line an item: symbol, label, name; symbol and colours as standard output allows.
    std::vector<std::string> lines(LinkSession& session) const;
    nlohmann::json json(LinkSession& session) const;

private:
    std::string folder_;
    std::vector<Entry> entries_;
};

} // namespace corvid
