#pragma once

#include <optional>
#include <string_view>
#include <vector>

// Which items an application or the system makes for its own purposes: hidden items and all below
// them, lock and owner files, backups, partial downloads, safe-save staging, autosave and scratch
// files. Names are compared exactly, capitals included, by whole characters (Characters.h). The
// path is taken as it is: no scheme is stripped, no percent escape decoded. Nothing here
// allocates, unless it says so. Any thread.

namespace corvid {

/// How many characters at the end of an extension must form a number for the extension to be an
/// editor's save-in-progress copy.
inline constexpr int AdobeTemporaryNumericCharacterCount = 10;

/// True when `path` names such an item. Such items get no badge, and the host is not asked.
bool isTemporaryItem(std::string_view path);

/// In words, the first rule by which isTemporaryItem() says so, such as "the name begins with a
/// dot"; nothing when it does not. The text is a constant.
std::optional<std::string_view> temporaryItemReason(std::string_view path);

/// The last component of `path`, split at every dot: "a", "tar", "gz" of "/a.tar.gz", one piece
/// when there is no dot. Nothing for "/". Allocates the list; the pieces are parts of `path`.
std::optional<std::vector<std::string_view>> allExtensions(std::string_view path);

/// True when `text` holds nothing but blanks: Unicode's space separators and the tab, but no line
/// break.
bool isEmpty(std::string_view text);

/// True for a drawing's locks, backups and scratch files.
bool isAutoCADTmpFile(std::string_view path);

/// True for the extension of an editor's save-in-progress copy, such as "psd1234567890".
bool isAdobeEditedFile(std::string_view pathExtension);

/// True when moving or saving `source` to `destination` is a step of a save or a download: either
/// the destination is temporary by itself, or it is a stand-in for the source.
bool isTemporaryOnTheBasisOf(std::string_view source, std::string_view destination);

/// True when the whole string, not its last component, begins as the folder does in which a
/// document is being saved.
bool pathStartingWithDocumentBeingSavedBy(std::string_view path);

/// True when the extension is one of an Adobe application's own.
bool isAdobeFile(std::string_view path);

} // namespace corvid
