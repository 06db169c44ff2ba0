#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Path strings, as `NSString` treats them: "/" separates components and "." begins an extension,
// whatever follows them; nothing is normalised and no file is looked at. A result that is a view
// is a part of the argument and lives as long. Any thread.

namespace corvid {

inline constexpr std::string_view kPathDelimiter = "/";
inline constexpr std::string_view kMFRootPathPrefix = "/";

/// A path at its last separator: what stringByDeletingLastPathComponent() and lastPathComponent()
/// give, for who wants both.
struct PathParts {
    std::string_view parent;
    std::string_view name;
};
PathParts splitPath(std::string_view path);

/// The part after the last separator, those at the end not counted: "b" of "/a/b//". "/" of "/",
/// empty of the empty path.
std::string_view lastPathComponent(std::string_view path);

/// The part of the last component after its last dot: "gz" of "/a/b.tar.gz". Empty when there is
/// no dot, when the only dot begins the name (".tiff"), or when nothing follows.
std::string_view pathExtension(std::string_view path);

/// pathExtension() of a path whose last component is `name`.
std::string_view extensionOfName(std::string_view name);

/// `path` without its last component and the separators before it: "/a" of "/a/b", "/" of "/a" and
/// of "/", empty of "a".
std::string_view stringByDeletingLastPathComponent(std::string_view path);
std::string_view deletingLastPathComponent(std::string_view path);

/// `path` without its extension and the dot before it, and without the separators at its end:
/// "/a/b.tar" of "/a/b.tar.gz". A name that has no extension by pathExtension() keeps its dots.
std::string_view stringByDeletingPathExtension(std::string_view path);
std::string_view deletePathExtension(std::string_view path);

/// The components in order; a separator at the beginning or at the end is one of its own:
/// "/", "a", "b", "/" of "/a/b/". Just "/" of "/"; none of the empty path.
std::vector<std::string_view> pathComponents(std::string_view path);

/// `path` and `component` joined by one separator, "/" of neither kept beyond that; the one of
/// them that is empty is left out.
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);

/// `path`, the separators at its end dropped, with "." and `extension`. Nothing when there is no
/// name to carry it: for the empty path and for "/".
std::optional<std::string> stringByAppendingPathExtension(std::string_view path,
                                                          std::string_view extension);

/// The first `length` characters of `text` and then `trailing`, or `text` alone when it has no
/// more than `length`. The result may so have more characters than `length`; no room is made for
/// `trailing`. A negative `length` is fatal.
std::string truncateString(std::string_view text, std::ptrdiff_t length,
                           std::string_view trailing = "\u2026");

/// `path` with a blank and `insert` before its extension, all other occurrences of which (with
/// their dot) are removed: "Report 2.pdf" of "Report.pdf", "a.b x.txt" of "a.txt.b.txt".
std::string insertStringBeforeExtension(std::string_view path, std::string_view insert);

/// `text` without as many characters as `prefix` has, when it begins with that; else `text`.
std::string_view deletingPrefix(std::string_view text, std::string_view prefix);

/// True when the last component begins with a dot.
bool isHidden(std::string_view path);

/// True when a component above the last one begins with a dot; ".." is one of these.
bool isAnyParentHidden(std::string_view path);

/// True when a piece of `folder`, split at every separator, begins with a dot.
bool hasHiddenComponent(std::string_view folder);

/// True for a path that begins with a dot, or has a component that does.
bool ignorable(std::string_view path);

/// True when the last component is ".localized", in capitals or not.
bool forcePreemptiveAttributeNotFound(std::string_view path);

} // namespace corvid
