#pragma once

#include <cstddef>

/// What the readers of property lists and archives take from a stranger. A host application stays
/// far below each bound; what exceeds one is refused whole.
namespace corvid::limits {

/// Bytes of an archive: the largest payload of a message port.
inline constexpr std::size_t kArchiveSize = std::size_t{64} << 20U;

/// Values of a property list. A payload of the largest size, full of URLs, holds half as many.
inline constexpr std::size_t kPropertyListValues = std::size_t{8} << 20U;

/// Code units of one string: hundreds of times the longest path of any file system.
inline constexpr std::size_t kStringLength = std::size_t{1} << 20U;

/// Objects inside one another. A submenu takes three; the limit keeps recursion within a small
/// fraction of a thread's stack.
inline constexpr std::size_t kDepth = 192;

/// Keys of one object; the platform's richest classes have some thirty.
inline constexpr std::size_t kKeysPerObject = 1024;

/// Code units of a key. Keys are names out of programs; each is read for every object that has it,
/// and many objects may share one, so that a long one would make reading slow.
inline constexpr std::size_t kKeyLength = 1024;

/// Names in a class chain.
inline constexpr std::size_t kClassChain = 32;

/// Decoding an archive of n bytes may take n times the factor, and the allowance, in memory.
/// An honest archive spends its bytes on names and references, which values do not repeat; a small
/// one that would unfold into much more is a trap.
inline constexpr std::size_t kMemoryFactor = 4;
inline constexpr std::size_t kMemoryAllowance = std::size_t{64} << 10U;

/// Characters of keys that the reader has no name for, for each byte of the archive, and those that
/// any archive may have besides. Such a key is read for every object that has it, and objects may
/// share their keys; an honest archive stays below a third of this.
inline constexpr std::size_t kKeyTextFactor = 128;
inline constexpr std::size_t kKeyTextAllowance = std::size_t{1} << 20U;

/// Bytes of a dictionary's key up to which it is compared wherever it is met. A longer one gets a
/// number when it is first met, so that many dictionaries may share it.
inline constexpr std::size_t kShortKey = 64;

/// The factor of memory for a property list that is no archive and is read for a person to look at:
/// it has no archive's overhead to draw on, its smallest value is a few bytes.
inline constexpr std::size_t kPlainMemoryFactor = 64;

} // namespace corvid::limits
