#pragma once

#include <string>
#include <string_view>

// The members of the string extension that ask the system something: its bundle for a text in the
// user's language, its pasteboard. The others are Core/Utility/Extensions/CVMAStringExtension.h.

namespace corvid {

/// The text under `key` in the default string table of the main bundle; the key itself when table
/// or entry is missing. Any thread.
std::string localized(std::string_view key);

/// The top-level folders of the user's storage, as absolute paths in the user's language: "/" and
/// the localized name. Each is made once, at its first use, and stays as it is for the life of the
/// process, whatever becomes of the language. Any thread.
const std::string& kFavoritePathPrefix();
const std::string& kSharedPathPrefix();
const std::string& kPersonalFolderPathPrefix();

/// Makes `text` the only content of the general pasteboard, as a string. Does nothing where the
/// system has no pasteboard. Main thread.
void copyToClipboard(std::string_view text);

} // namespace corvid
