#pragma once

#include "Extensions/FileManagers/Link/LinkClient.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace corvid::gtk {

/// What a menu is opened on.
struct MenuSelection {
    std::string folder;
    std::vector<link::SelectedItem> items;
    bool isBackground = false;
    friend bool operator==(const MenuSelection&, const MenuSelection&) = default;
};

/// The menus of the last few selections. A menu is asked for when a selection is first heard of;
/// who opens it before the answer has come waits for it, but never beyond kPatience after that.
///
/// A menu stays as it is for kFreshness, since file managers ask again and again for the menu that
/// they show, and a click must find the entry that it was made on. When the badge of a selected
/// item has changed, and after a click, it is known to be wrong: then who opens it waits likewise,
/// unless it may be open already. On its owner's thread, the one that dispatches the LinkClient.
class MenuCache {
public:
    static constexpr std::chrono::milliseconds kPatience{100};
    static constexpr std::chrono::seconds kFreshness{10};
    static constexpr std::size_t kMaxMenus = 8;
    /// A menu that is answered anew without a difference keeps its number for so many answers; the
    /// extension takes clicks for twice as many.
    static constexpr std::uint64_t kKeptMenus = 16;

    struct KnownMenu {
        std::uint32_t number = 0; ///< what a click names
        std::string title;
        std::vector<link::MenuEntry> entries;
        /// False while the host does not answer; then the title is what to say instead, empty for
        /// just that, and there are no entries.
        bool isAnswer = true;
    };

    /// `changed` hears that a menu should be asked for again: it was handed out without its
    /// entries, or with old ones. `client` must outlive this.
    MenuCache(link::LinkClient& client, std::function<void()> changed);

    /// What a menu that shows the selection is made for.
    enum class Use : std::uint8_t {
        preparing, ///< nobody sees it yet: never waits
        opening,   ///< it comes on the screen now
    };

    /// The menu for the selection; null where there is none to show: outside the volume, and while
    /// a menu that is being prepared is awaited. Valid until the next call of a member.
    const KnownMenu* menu(const MenuSelection& selection, Use use);

    /// Sends a click on entry `item`, as entries are numbered by the link, of the menu `number`.
    void click(std::uint32_t number, std::uint32_t item);

    // What the extension says.
    void linkUp();
    void linkDown();
    void received(const link::MenuReply& reply);
    void received(const link::HostStateChange& change);
    /// Answered badges are no news: only what was not asked for says that an item has changed.
    void received(const link::Badges& badges);

private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        MenuSelection selection;
        KnownMenu menu;
        std::uint32_t request = 0; ///< in work; 0 for none
        std::uint64_t answer = 0;  ///< which one the menu came with, counted by `answers_`
        Clock::time_point asked{};
        Clock::time_point answered{};
        Clock::time_point opened{}; ///< the epoch when it cannot be open
        bool isWrong = false;       ///< since it was last asked for
        bool wasWrong = false;      ///< then
        enum class Outcome : std::uint8_t {
            none, ///< not answered yet
            made, ///< there is a menu to show
            outside,
            failed,
        };
        Outcome outcome = Outcome::none;
        enum class HandedOut : std::uint8_t { menu, nothing, note };
        HandedOut handedOut = HandedOut::menu;
    };

    static bool isRecent(Clock::time_point time) { return Clock::now() - time < kFreshness; }
    Entry& entryOf(const MenuSelection& selection);
    void ask(Entry& entry);
    void waitFor(std::uint32_t request, Clock::time_point deadline);

    link::LinkClient& client_;
    const std::function<void()> changed_;
    std::deque<Entry> entries_; ///< newest first
    std::uint64_t answers_ = 0;
    bool isWaiting_ = false;
};

} // namespace corvid::gtk
