#pragma once

#include "Core/Archive/NameTable.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
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

/// The keys that the reader acts upon, or meets so often that it should know them.
inline constexpr NameTable
    kKnown(std::to_array<Name>({kVersion,       kArchiver,       kObjects,
                                kTop,           kRoot,           kClass,
                                kClassName,     kClasses,        kClassHints,
                                kElements,      kDictionaryKeys, kString,
                                kStringBytes,   kData,           kTime,
                                kBase,          kRelative,       kTitle,
                                kKeyEquivalent, kModifierMask,   kMnemonicLocation,
                                kTag,           kState,          kIndentation,
                                kIsDisabled,    kIsHidden,       kIsAlternate,
                                kIsSeparator,   kToolTip,        kAction,
                                kTarget,        kSubmenu,        kMenu,
                                kImage,         kOnImage,        kMixedImage,
                                kLocalizesKey,  kMirrorsKey,     kHiddenInRepresentation,
                                kMenuItems,     kNoAutoenable}));

/// A key of an archive, as its place in that list: it is compared and switched on as a number.
/// All keys that are not in the list are one, the unknown key.
class Key {
public:
    constexpr Key() = default;
    /// For a name in the program; does not compile when the list lacks it. Implicit, so that a
    /// reader names what it looks for as the writer does.
    consteval Key(Name name) : Key(found(name)) {
        if (!isKnown()) {
            throw name;
        }
    }
    /// The key that turns into `number`.
    static constexpr Key numbered(std::size_t number) {
        Key key;
        key.number_ = static_cast<std::uint8_t>(number);
        return key;
    }
    /// For a key that was read.
    static constexpr Key found(Name name) {
        Key key;
        key.number_ = static_cast<std::uint8_t>(kKnown.find(name));
        return key;
    }

    constexpr bool isKnown() const { return number_ != kKnown.kNone; }
    /// Of a known key.
    constexpr Name text() const { return kKnown[number_]; }
    constexpr operator std::uint8_t() const { return number_; }

private:
    std::uint8_t number_ = kKnown.kNone;
};

/// Some keys; the unknown key, which stands for many, may be one of them.
class KeySet {
public:
    constexpr KeySet() = default;
    constexpr KeySet(std::initializer_list<Key> keys) {
        for (const Key key : keys) {
            insert(key);
        }
    }

    constexpr void insert(Key key) { bits_ |= bit(key); }
    constexpr bool contains(Key key) const { return (bits_ & bit(key)) != 0; }
    constexpr bool contains(KeySet other) const { return (other.bits_ & ~bits_) == 0; }
    constexpr KeySet commonWith(KeySet other) const {
        KeySet common;
        common.bits_ = bits_ & other.bits_;
        return common;
    }

    constexpr bool isEmpty() const { return bits_ == 0; }
    /// Takes out the first key in the order of kKnown; not when empty.
    constexpr Key takeFirst() {
        const Key first = Key::numbered(static_cast<std::size_t>(std::countr_zero(bits_)));
        bits_ &= bits_ - 1;
        return first;
    }

private:
    static_assert(kKnown.kNone < 64);
    static constexpr std::uint64_t bit(Key key) { return std::uint64_t{1} << key; }

    std::uint64_t bits_ = 0;
};

} // namespace corvid::keys
