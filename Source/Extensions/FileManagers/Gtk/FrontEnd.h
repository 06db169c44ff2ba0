#pragma once

#include "Extensions/FileManagers/Gtk/FolderListing.h"
#include "Extensions/FileManagers/Gtk/MenuCache.h"
#include "Extensions/FileManagers/Gtk/RedrawQueue.h"
#include "Extensions/FileManagers/Link/BadgeCache.h"
#include "Extensions/FileManagers/Link/LinkClient.h"

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace corvid::gtk {

/// A file manager's end of the Finder link, without its toolkit: which badge an item has, which
/// menu a selection, and what is to be drawn anew. It never waits but in menu(), as MenuCache says.
/// On the file manager's main thread throughout.
class FrontEnd : private link::LinkClient::Delegate {
public:
    struct FileManager {
        /// There is something more in redraws(). May be called from within any member.
        std::function<void()> redrawWanted;
        /// Menus should be asked for again.
        std::function<void()> menusChanged;
        /// Those items of a folder in view should be given to expect().
        std::function<void(const std::string& folder, Listing which)> listingWanted;
        /// It asks for badges when it has loaded a whole folder, and shows the first items before.
        bool asksLate = false;
    };

    FrontEnd(link::LinkClient::Options options, FileManager fileManager);

    /// Readable when dispatch() has something to do.
    int fd() const { return client_.fd(); }
    void dispatch() { client_.dispatch(); }

    /// Without a folder until the extension has said it.
    const link::Volume& volume() const { return volume_; }

    /// A folder comes into view, and goes. Counted.
    void begin(const std::string& folder);
    void end(const std::string& folder);

    /// Items whose badges the file manager will ask for, so that they are known by then.
    void expect(const std::string& folder, const std::vector<link::AskedItem>& items);
    /// The file manager draws an item: its badge as far as it is known, empty for none.
    std::string badge(const std::string& path, bool isFolder);

    /// The items to draw anew. The file manager is given the badge of one that had none, which is
    /// badgeToAdd(), and has to ask for that of any other. Whoever has it ask says so, so that this
    /// is not taken for a change of the item.
    RedrawQueue& redraws() { return redraws_; }
    std::string badgeToAdd(const std::string& path);
    void badgeWillBeAskedFor(const std::string& path);

    /// As in MenuCache; null outside the volume.
    const MenuCache::KnownMenu* menu(const MenuSelection& selection, MenuCache::Use use);
    void click(std::uint32_t menu, std::uint32_t item) { menus_.click(menu, item); }

private:
    void linkUp() override;
    void linkDown(const std::string& reason) override;
    void linkRefused(const std::string& reason) override;
    void received(link::Message message) override;
    void woken() override { badges_.woken(); }

    struct Place {
        std::string folder;
        std::string name;
    };
    struct Drawn {
        bool wasAskedFor = false;
        std::string added; ///< the badge that it was given since it was last asked for
    };

    void volumeChanged(const link::Volume& before);
    static Place placeOf(const std::string& path);
    Drawn& drawn(const Place& place);
    void redraw(const std::string& folder, const std::vector<std::string>& names,
                RedrawQueue::Reason reason);

    const FileManager fileManager_;
    link::LinkClient client_;
    link::BadgeCache badges_;
    MenuCache menus_;
    link::Volume volume_;
    bool isRefused_ = false;
    MenuCache::KnownMenu restartNote_;

    /// Items that were drawn, by folder: a folder that comes into view has them drawn anew.
    std::unordered_map<std::string, std::unordered_map<std::string, Drawn>> drawn_;
    std::size_t drawnItems_ = 0;
    RedrawQueue redraws_;
    /// The next badge() of these is no change of the item.
    std::unordered_set<std::string> redrawing_;
};

} // namespace corvid::gtk
