#pragma once

#include "Extensions/FileManagers/Link/LinkClient.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace corvid::link {

/// The badges that a front end draws: answers at once from what it knows, asks for the rest in the
/// background, each item once, and says what has to be drawn anew.
///
/// It holds the folders being shown and a few that were shown last; the ones shown longest ago go
/// first. Of the folders being shown, kMaxFoldersShown have badges; the others get them as those
/// go. Folders outside the volume cost a comparison. On its owner's thread throughout, the one
/// that dispatches the LinkClient, whose events its owner passes on.
class BadgeCache {
public:
    /// `changed` hears, from within received(), which items of a folder have another badge now, and
    /// whether it is the first that they have.
    enum class Change : std::uint8_t { firstBadge, otherBadge };
    using Changed = std::function<void(const std::string& folder,
                                       const std::vector<std::string>& names, Change change)>;

    /// Folders kept that are no longer shown, and items of all those together.
    static constexpr std::size_t kMaxFoldersKept = 16;
    static constexpr std::size_t kMaxItemsKept = 50'000;
    /// Items of all folders together; one beyond them has no badge and is not asked for.
    static constexpr std::size_t kMaxItems = 1'000'000;
    /// Items of a folder up to which badges of items are kept that were not asked for.
    static constexpr std::size_t kMaxItemsPushed = 200'000;

    /// `client` must outlive this.
    BadgeCache(LinkClient& client, Changed changed);

    /// A folder comes into view, and goes; begins and ends of one folder are counted. `folder` is
    /// an absolute path without a "/" at its end.
    void begin(const std::string& folder);
    void end(const std::string& folder);
    bool isShown(const std::string& folder) const;
    std::vector<std::string> shownFolders() const;

    /// The badge of an item of a folder, as far as it is known; empty for none. An item that was
    /// not asked for since its folder was begun is asked for, soon and together with others. Items
    /// of folders that are not shown have no badge.
    std::string_view badge(const std::string& folder, std::string_view name, bool isFolder);
    /// As badge(), and asks anew: the item has changed.
    std::string_view refresh(const std::string& folder, std::string_view name, bool isFolder);
    /// As badge(), but nothing is asked.
    std::string_view known(const std::string& folder, const std::string& name) const;
    /// How many items were asked for and not answered yet.
    std::size_t unanswered() const { return unanswered_; }

    // The events of LinkClient::Delegate with the same names.
    void linkUp();
    void received(const Badges& badges);
    void received(const Volume& volume);
    void woken();

private:
    struct Item {
        enum class State : std::uint8_t { unknown, gathered, asked, answered };
        std::string badge;
        bool isFolder = false;
        State state = State::unknown;
    };
    struct Folder {
        std::size_t views = 0;
        bool isBegun = false;        ///< as the extension was told
        std::uint64_t lastShown = 0; ///< a count of ends; larger is later
        std::unordered_map<std::string, Item> items;
        std::vector<std::string> gathered;
    };

    void tellBegin(const std::string& name, Folder& folder);
    void tellEnd(const std::string& name, Folder& folder);
    void gather(Folder& folder, const std::string& name, Item& item);
    void forgetQuestions(Folder& folder);
    void dropOldest();

    LinkClient& client_;
    const Changed changed_;
    Volume volume_; ///< without a folder until the extension has said it
    std::unordered_map<std::string, Folder> folders_;
    std::uint64_t ends_ = 0;
    std::size_t unanswered_ = 0;
    std::size_t items_ = 0;
    std::size_t begun_ = 0;
    bool isWaking_ = false;
};

} // namespace corvid::link
