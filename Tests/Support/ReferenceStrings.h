#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A second reading of the string extension, plain and slow, to hold the fast one against. It
/// shares no code with it: every text is taken apart into its characters, each in normalization
/// form D, before anything is compared, and every list is searched from its start.
namespace corvid::reference {

std::size_t characterCount(std::string_view text);
bool textEquals(std::string_view a, std::string_view b);
bool beginsWith(std::string_view text, std::string_view prefix);
bool endsWith(std::string_view text, std::string_view suffix);

std::string lastPathComponent(std::string_view path);
std::string pathExtension(std::string_view path);
std::string stringByDeletingLastPathComponent(std::string_view path);
std::string stringByDeletingPathExtension(std::string_view path);
std::vector<std::string> pathComponents(std::string_view path);
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);
std::optional<std::string> stringByAppendingPathExtension(std::string_view path,
                                                          std::string_view extension);
std::string truncateString(std::string_view text, std::size_t length, std::string_view trailing);
std::string insertStringBeforeExtension(std::string_view path, std::string_view insert);
std::string deletingPrefix(std::string_view text, std::string_view prefix);
bool isHidden(std::string_view path);
bool isAnyParentHidden(std::string_view path);
bool ignorable(std::string_view path);
bool forcePreemptiveAttributeNotFound(std::string_view path);

bool isTemporaryItem(std::string_view path);
std::optional<std::vector<std::string>> allExtensions(std::string_view path);
bool isEmpty(std::string_view text);
bool isAutoCADTmpFile(std::string_view path);
bool isAdobeEditedFile(std::string_view extension);
bool isTemporaryOnTheBasisOf(std::string_view source, std::string_view destination);
bool pathStartingWithDocumentBeingSavedBy(std::string_view path);
bool isAdobeFile(std::string_view path);

bool isMediaType(std::string_view path);
bool isWatermarkEligible(std::string_view path);
bool isEligibleForInUseCheck(std::string_view path);
bool isOfficeFile(std::string_view path);
bool isCoeditSupported(std::string_view path);
bool isCompressedFile(std::string_view path);
std::string getOfficeLockFile(std::string_view name);
bool isEmail(std::string_view text);
std::string toBase64(std::string_view text);
std::optional<std::string> fromBase64(std::string_view text);
/// Red, green and blue from 0 to 255; empty for the system's grey.
std::vector<int> colorFromHex(std::string_view text);
bool containsInvalidPlatformFileNameCharacters(std::string_view text);
bool isExtractedZip(std::string_view path);
bool isLoggable(std::string_view path);
std::string reduceToItemIDComponent(std::string_view path);
bool isPersonalFoldersID(std::string_view identifier);
bool isLinkOrNoteId(std::string_view identifier);
bool isStandardCorvidFolder(std::string_view identifier);

} // namespace corvid::reference
