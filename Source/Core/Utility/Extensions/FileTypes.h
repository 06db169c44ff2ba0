#pragma once

#include "Core/Archive/Value.h"
#include "Core/Base/Bytes.h"

#include <optional>
#include <string>
#include <string_view>

// What kind of file a name says, and further small questions about names and identifiers. An
// extension is that of pathExtension(); names are compared exactly, capitals included, by whole
// characters (Characters.h), except where a member says otherwise. Any thread.

namespace corvid {

/// Extensions of the files that are checked for being in use. Distinct.
inline constexpr std::string_view inUseCheckSupportedExtensionsSet[] = {
    "csv",  "doc",  "docm", "docx", "htm", "html",   "key",  "md",   "numbers", "pages",
    "ppt",  "pptx", "rtf",  "slk",  "tif", "xls",    "xlsb", "xlsm", "xlsx",    "xml",
    "aaf",  "aep",  "aepx", "aet",  "ai",  "ait",    "amx",  "eps",  "indb",    "indd",
    "indl", "indt", "indx", "pdf",  "prn", "prproj", "ps",   "psd",  "dwg"};

/// Extensions of the files that can carry a watermark. A set: "ppt", listed twice, counts once.
inline constexpr std::string_view watermarkEligibleExtensions[] = {
    "ppt",  "potm", "potx", "ppam", "ppt",  "ppsm", "ppsx", "pptm", "pptx", "doc", "docm",
    "doct", "docx", "xlsx", "xlam", "xlsb", "xlsm", "xltm", "xltx", "xls",  "pdf"};

/// True for a picture or a film, by its extension, in capitals or not.
bool isMediaType(std::string_view path);

bool isWatermarkEligible(std::string_view path);
bool isEligibleForInUseCheck(std::string_view path);
bool isOfficeFile(std::string_view path);
bool isCoeditSupported(std::string_view path);
bool isCompressedFile(std::string_view path);

/// The name of the lock file beside the office file `name`: "~$" and the whole of `name`.
std::string getOfficeLockFile(std::string_view name);

/// True when the whole text is an e-mail address of ASCII letters, digits and "._%+-", with a top
/// domain of 2 to 20 letters.
bool isEmail(std::string_view text);

/// Base64 (RFC 4648, section 4) of the bytes, padded, on one line.
std::string toBase64(std::string_view text);

/// The text that toBase64() was given. Nothing when `text` is not padded Base64 throughout, or
/// when the bytes are not UTF-8.
std::optional<std::string> fromBase64(std::string_view text);

/// A colour in the RGB colour space; every part is 0 to 1.
struct Color {
    double red;
    double green;
    double blue;
    double alpha;
    friend bool operator==(const Color&, const Color&) = default;
};

/// The system's grey (`grayColor`), which no six hexadecimal digits give.
inline constexpr Color kGrayColor{0.5, 0.5, 0.5, 1.0};

/// The colour that six hexadecimal digits say, "#" before and blanks around them allowed;
/// kGrayColor for a text of any other length. Digits after the first that is none count as absent:
/// the number is what was read so far, 0 at least.
Color colorFromHex(std::string_view text);

/// A copy of the text's bytes, without a terminating zero. Nothing when it is not UTF-8.
std::optional<Bytes> toPointer(std::string_view text);

/// True when a character cannot stand in a file name on every platform: a control character below
/// U+0020, or one of "<>|:*?\ and the double quote. "/" is none of these.
bool containsInvalidPlatformFileNameCharacters(std::string_view text);

/// True when the last component contains ".BAH" or begins with ".AU.".
bool isExtractedZip(std::string_view path);

/// True when a path, given relative to the root of the volume, may be named in a log: not the root
/// or one of its fixed folders, not hidden, and not below a hidden folder.
bool isLoggable(std::string_view path);

/// The last piece of a path of item identifiers without "Items(" and ")": "fo1234" of
/// "a/b/Items(fo1234)". Empty for a path that ends in "/".
std::string reduceToItemIDComponent(std::string_view path);

/// Kinds of item identifiers, told by how they begin: "foh"; "l" or "n"; "fo".
bool isPersonalFoldersID(std::string_view identifier);
bool isLinkOrNoteId(std::string_view identifier);
bool isStandardCorvidFolder(std::string_view identifier);

/// The integer number object 1 for true, 0 for false.
inline Value toNumber(bool value) {
    return Value::integer(value ? 1 : 0);
}

} // namespace corvid
