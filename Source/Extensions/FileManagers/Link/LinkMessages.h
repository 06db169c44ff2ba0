#pragma once

#include "Core/Base/Bytes.h"
#include "Extensions/FileManagers/Link/LinkFrame.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// What the two ends of the Finder link say to each other. Paths are absolute local paths in bytes,
// without a "/" at the end; a name is one component of such a path.

namespace corvid::link {

/// The front end's greeting: the versions that it speaks, and its program's name.
struct Hello {
    std::uint16_t oldestVersion = kOldestVersion;
    std::uint16_t newestVersion = kNewestVersion;
    std::string program;
};

/// The extension's greeting: the version that holds from here on.
struct Welcome {
    std::uint16_t version = kNewestVersion;
    std::uint32_t pid = 0;
    std::string programVersion;
};

/// Instead of a welcome: no version is common to both.
struct Refused {
    std::uint16_t oldestVersion = kOldestVersion;
    std::uint16_t newestVersion = kNewestVersion;
    std::string reason; ///< a sentence for people
};

/// The folder that the volume is. Whatever was begun before counts no more.
struct Volume {
    std::string folder;

    /// Whether an absolute path is that folder or below it. Nothing is below "".
    bool holds(std::string_view path) const;
};

struct BadgeKind {
    std::string identifier;
    std::string label;
    std::string imagePath; ///< empty when it has none
    friend bool operator==(const BadgeKind&, const BadgeKind&) = default;
};

/// Every badge that may come, in the order of their registration.
struct BadgeKinds {
    std::vector<BadgeKind> kinds;
};

/// A folder came into view, or went; each end answers one begin of the same connection.
struct Begin {
    std::string folder;
};
struct End {
    std::string folder;
};

struct AskedItem {
    std::string name;
    bool isFolder = false;
    friend bool operator==(const AskedItem&, const AskedItem&) = default;
};

/// Asks for the badges of items in a folder that this connection has begun.
struct Ask {
    std::string folder;
    std::vector<AskedItem> items;
};

struct ItemBadge {
    std::string name;
    std::string badge; ///< empty for none
    /// True when this settles a question of this connection, false for what it did not ask.
    bool isAnswer = false;
    friend bool operator==(const ItemBadge&, const ItemBadge&) = default;
};

/// The badges that items of a folder have now: answers and pushes alike.
struct Badges {
    std::string folder;
    std::vector<ItemBadge> items;
};

struct SelectedItem {
    std::string path;
    bool isFolder = false;
    friend bool operator==(const SelectedItem&, const SelectedItem&) = default;
};

/// Asks for the menu of a selection in `folder`. The folder's own (background) menu has the folder
/// as its one selected item; an empty or absent selection cannot be said.
struct MenuRequest {
    std::uint32_t request = 0;
    /// Which of the front end's windows asks: a newer request replaces an unsent older one of the
    /// same context.
    std::uint32_t context = 0;
    std::uint8_t kind = 0; ///< as FIMenuKind
    std::string folder;
    std::vector<SelectedItem> selection;
};

/// One entry. Entries are numbered from 0 in the order in which they travel, each before those of
/// its submenu.
struct MenuEntry {
    std::string title;
    std::string toolTip;
    std::string iconName;  ///< empty for none
    std::int8_t state = 0; ///< -1 mixed, 0 off, 1 on
    std::uint8_t indentation = 0;
    bool isEnabled = false; ///< false as well where a click would not reach the extension
    bool isHidden = false;
    bool isAlternate = false;
    bool isSeparator = false;
    bool hasSubmenu = false;
    std::vector<MenuEntry> submenu;
    friend bool operator==(const MenuEntry&, const MenuEntry&) = default;
};

enum class MenuOutcome : std::uint8_t {
    made = 0,        ///< the menu is there (it may be empty)
    superseded = 1,  ///< a newer request of the same context came before this one was sent
    notOnVolume = 2, ///< the folder or an item is not on the volume, or its name is not UTF-8
    tooLarge = 3,    ///< more entries than the link carries
    hostFailed = 4,  ///< there is a host, but it did not answer; the menu is empty
};

struct MenuReply {
    std::uint32_t request = 0;
    MenuOutcome outcome = MenuOutcome::made;
    std::uint32_t menu = 0; ///< what a click names
    std::string title;
    std::vector<MenuEntry> entries;
};

/// A click on entry number `item` of the menu `menu` of this connection.
struct Click {
    std::uint32_t request = 0;
    std::uint32_t menu = 0;
    std::uint32_t item = 0;
};

enum class ClickOutcome : std::uint8_t {
    sent = 0,         ///< the host has it
    unknownMenu = 1,  ///< too old, or of another connection: ask for the menu again
    notClickable = 2, ///< disabled, a separator, or deeper than one submenu
    hostFailed = 3,   ///< the host did not take it
    hostAbsent = 4,
};

struct ClickReply {
    std::uint32_t request = 0;
    ClickOutcome outcome = ClickOutcome::sent;
};

enum class HostState : std::uint8_t {
    absent = 0,       ///< nobody serves the host application's port
    present = 1,      ///< it is there, and the last message to it arrived
    notAnswering = 2, ///< it is there, but the last message to it failed
};

struct HostStateChange {
    HostState state = HostState::absent;
};

struct StatusRequest {
    std::uint32_t request = 0;
};

/// How the extension is.
struct StatusReply {
    std::uint32_t request = 0;
    std::uint32_t pid = 0;
    std::string programVersion;
    std::string volume;
    bool isVolumeFixed = false; ///< false: it takes the folder that a host names
    std::string problem;        ///< a sentence on what is set up wrongly; empty when nothing is
    HostState hostState = HostState::absent;
    std::uint32_t hostPid = 0;          ///< 0 when unknown
    std::vector<std::string> frontEnds; ///< their programs' names
    std::uint32_t shownFolders = 0;
    std::uint32_t waitingQuestions = 0;
    std::uint64_t messagesSent = 0;
    std::uint64_t messagesFailed = 0;
    /// Of the newest request that the host answered; nothing before the first.
    std::optional<std::chrono::microseconds> roundTrip;
    std::string lastFailure; ///< empty when there was none
    std::chrono::milliseconds sinceLastFailure{0};
    /// Sentences on what keeps the log from being written; empty when nothing does, and from an
    /// extension that does not tell yet.
    std::string logProblem;
};

struct Ping {
    std::uint32_t request = 0;
};
struct Pong {
    std::uint32_t request = 0;
};

using Message = std::variant<Hello, Welcome, Refused, Volume, BadgeKinds, Begin, End, Ask, Badges,
                             MenuRequest, MenuReply, Click, ClickReply, StatusRequest, StatusReply,
                             HostStateChange, Ping, Pong>;

/// Appends `message` as one frame to `out`. False, with `out` as it was, when it exceeds a bound
/// of LinkFrame.h.
bool appendFrame(Bytes& out, const Message& message);

/// What a frame without its length field says; the bytes may come from anyone.
struct Decoded {
    enum class Kind { message, unknownType, malformed };
    Kind kind = Kind::malformed;
    Message message; ///< when `kind` is message
};
Decoded decodeFrame(ByteView frame);

/// True for an absolute path without an empty, "." or ".." component, a "/" at the end or a NUL;
/// and for one component of such a path.
bool isPlainPath(std::string_view path);
bool isPlainName(std::string_view name);

} // namespace corvid::link
