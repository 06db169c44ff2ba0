#pragma once

#include <cstdint>
#include <string_view>

/// The names that keyed archives of the platform use: those of the container, and those that its
/// classes write. Internal to this folder.
namespace corvid::keys {

using Name = std::string_view;

inline constexpr Name kVersion = "$version";
inline constexpr Name kArchiver = "$archiver";
inline constexpr Name kObjects = "$objects";
inline constexpr Name kTop = "$top";
inline constexpr Name kRoot = "root";
inline constexpr Name kClass = "$class";
inline constexpr Name kClassName = "$classname";
inline constexpr Name kClasses = "$classes";
inline constexpr Name kClassHints = "$classhints";

inline constexpr Name kNil = "$null";
inline constexpr Name kKeyedArchiver = "NSKeyedArchiver";
inline constexpr std::int64_t kArchiveVersion = 100000;

inline constexpr Name kElements = "NS.objects";
inline constexpr Name kDictionaryKeys = "NS.keys";
inline constexpr Name kNumberedElement = "NS.object.";
inline constexpr Name kNumberedKey = "NS.key.";
inline constexpr Name kString = "NS.string";
inline constexpr Name kStringBytes = "NS.bytes";
inline constexpr Name kData = "NS.data";
inline constexpr Name kTime = "NS.time";
inline constexpr Name kBase = "NS.base";
inline constexpr Name kRelative = "NS.relative";

inline constexpr Name kTitle = "NSTitle";
inline constexpr Name kKeyEquivalent = "NSKeyEquiv";
inline constexpr Name kModifierMask = "NSKeyEquivModMask";
inline constexpr Name kMnemonicLocation = "NSMnemonicLoc";
inline constexpr Name kTag = "NSTag";
inline constexpr Name kState = "NSState";
inline constexpr Name kIndentation = "NSIndent";
inline constexpr Name kIsDisabled = "NSIsDisabled";
inline constexpr Name kIsHidden = "NSIsHidden";
inline constexpr Name kIsAlternate = "NSIsAlternate";
inline constexpr Name kIsSeparator = "NSIsSeparator";
inline constexpr Name kToolTip = "NSToolTip";
inline constexpr Name kAction = "NSAction";
inline constexpr Name kTarget = "NSTarget";
inline constexpr Name kSubmenu = "NSSubmenu";
inline constexpr Name kMenu = "NSMenu";
inline constexpr Name kImage = "NSImage";
inline constexpr Name kOnImage = "NSOnImage";
inline constexpr Name kMixedImage = "NSMixedImage";
inline constexpr Name kLocalizesKey = "NSAllowsKeyEquivalentLocalization";
inline constexpr Name kMirrorsKey = "NSAllowsKeyEquivalentMirroring";
inline constexpr Name kHiddenInRepresentation = "NSHiddenInRepresentation";

/// What NSMnemonicLoc holds in an item without a mnemonic, that is, in every item of today.
inline constexpr std::int64_t kNoMnemonic = 2147483647;

inline constexpr Name kMenuItems = "NSMenuItems";
inline constexpr Name kNoAutoenable = "NSNoAutoenable";

} // namespace corvid::keys
