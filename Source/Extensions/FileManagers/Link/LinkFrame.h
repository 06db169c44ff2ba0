#pragma once

#include <cstddef>
#include <cstdint>

// The bytes of the Finder link, in one place; docs/finder-link-protocol.md explains them.
//
//   frame   := length:u32 type:u8 payload          length counts type and payload
//   string  := length:u32 bytes
//   numbers are little-endian
//
// A receiver skips frames whose type it does not know and bytes after the fields that it knows, so
// that a later version may add both.

namespace corvid::link {

/// The first four bytes of both greetings: "CVFL".
inline constexpr std::uint32_t kMagic = 0x4C465643;

/// The versions of the link that this build speaks.
inline constexpr std::uint16_t kOldestVersion = 1;
inline constexpr std::uint16_t kNewestVersion = 1;

/// The name of the socket in the runtime folder.
inline constexpr char kSocketName[] = "finder-link";

inline constexpr std::size_t kFrameHeaderSize = 4;
/// A frame's length field beyond this ends the connection before anything is allocated.
inline constexpr std::size_t kMaxFrameSize = std::size_t{16} * 1024 * 1024;
/// The same before the greeting.
inline constexpr std::size_t kMaxGreetingSize = std::size_t{4} * 1024;
/// A path, and one name of it, as the kernel bounds them (PATH_MAX, NAME_MAX).
inline constexpr std::size_t kMaxPathSize = 4096;
inline constexpr std::size_t kMaxNameSize = 255;
/// Names in one batch of badge questions or answers.
inline constexpr std::size_t kMaxBatchSize = 4096;
/// Entries of one menu, all levels together, and how deep they nest.
inline constexpr std::size_t kMaxMenuItems = 20000;
inline constexpr std::size_t kMaxMenuDepth = 16;
/// Folders that one connection may show at a time.
inline constexpr std::size_t kMaxFoldersShown = 1024;
/// Badge kinds that an extension may register.
inline constexpr std::size_t kMaxBadgeKinds = 64;

/// What a frame is. The front end sends the ones marked >, the extension those marked <.
enum class FrameType : std::uint8_t {
    hello = 1,          ///< > magic oldest:u16 newest:u16 program:string
    welcome = 2,        ///< < magic version:u16 pid:u32 program-version:string
    refused = 3,        ///< < oldest:u16 newest:u16 reason:string; then the extension hangs up
    volume = 4,         ///< < folder:string; after welcome, and when it changes
    badgeKinds = 5,     ///< < count:u32 (id:string label:string image:string)*
    begin = 6,          ///< > folder:string
    end = 7,            ///< > folder:string
    ask = 8,            ///< > folder:string count:u32 (flags:u8 name:string)*
    badges = 9,         ///< < folder:string count:u32 (flags:u8 name:string badge:string)*
    menuRequest = 10,   ///< > request:u32 context:u32 kind:u8 folder:string count:u32
                        ///<   (flags:u8 path:string)*, count at least 1
    menuReply = 11,     ///< < request:u32 outcome:u8 menu:u32 title:string items
    click = 12,         ///< > request:u32 menu:u32 item:u32
    clickReply = 13,    ///< < request:u32 outcome:u8
    statusRequest = 14, ///< > request:u32
    statusReply = 15,   ///< < request:u32, then as in StatusReply
    hostState = 16,     ///< < state:u8; after welcome, and when it changes
    ping = 17,          ///< > request:u32
    pong = 18,          ///< < request:u32
};

// items := count:u32 (flags:u8 state:i8 indentation:u8 title:string tool-tip:string icon:string
//                     items if kHasSubmenu)*

/// Flags of an item in ask and menuRequest.
inline constexpr std::uint8_t kIsFolder = 1;
/// Flag of an item in badges: this settles a question of the same connection.
inline constexpr std::uint8_t kIsAnswer = 1;
/// Flags of a menu entry.
inline constexpr std::uint8_t kIsEnabled = 1;
inline constexpr std::uint8_t kIsHidden = 2;
inline constexpr std::uint8_t kIsAlternate = 4;
inline constexpr std::uint8_t kIsSeparator = 8;
inline constexpr std::uint8_t kHasSubmenu = 16;

} // namespace corvid::link
