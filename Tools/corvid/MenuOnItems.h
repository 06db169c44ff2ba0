#pragma once

#include "LinkCommand.h"

#include <optional>
#include <string>
#include <vector>

namespace corvid {

/// The menu that a file manager would open on some items, or on the background of a folder.
class MenuOnItems {
public:
    /// Asks the host for the menu of `paths`, as a user typed them. With `isBackground`, or for
    /// the volume itself, the one path's own menu. Fails as fail() does, by `deadline` at the
    /// latest.
    MenuOnItems(LinkSession& session, const std::vector<std::string>& paths, bool isBackground,
                const Deadline& deadline);

    const link::MenuReply& reply() const { return reply_; }

    /// The entries as a tree, one line each.
    std::vector<std::string> lines() const;
    nlohmann::json json() const;

    /// An entry by its title, or, in a submenu, by the titles with " > " between them as well.
    struct Found {
        std::uint32_t number = 0;
        const link::MenuEntry* entry = nullptr;
        std::string title; ///< with those of the entries above it
    };
    /// Every visible entry with that title that is no separator; a full title comes alone.
    std::vector<Found> find(const std::string& title) const;
    /// The titles of all entries that can be clicked.
    std::vector<std::string> clickableTitles() const;

private:
    std::vector<Found> all() const;
    link::MenuReply reply_;
};

} // namespace corvid
