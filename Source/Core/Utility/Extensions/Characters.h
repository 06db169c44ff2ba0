#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>

// Text as a person sees it: a character is an extended grapheme cluster (Unicode, annex 29), and
// two characters are the same when they are canonically equivalent (annex 15). Arguments are
// UTF-8; a bad sequence counts as U+FFFD. Nothing here allocates on ASCII. Any thread.

namespace corvid {

/// The length in bytes of the first character of `text`, which must not be empty.
std::size_t characterLength(std::string_view text);

/// The number of characters in `text`.
std::size_t characterCount(std::string_view text);

/// The first `count` characters of `text`, or all of it when it has fewer.
std::string_view firstCharacters(std::string_view text, std::size_t count);

/// The last `count` characters of `text`, or all of it when it has fewer.
std::string_view lastCharacters(std::string_view text, std::size_t count);

/// True when both have the same characters.
bool textEquals(std::string_view a, std::string_view b);

/// True when the first characters of `text` are those of `prefix`; always when that is empty.
bool beginsWith(std::string_view text, std::string_view prefix);

/// True when the last characters of `text` are those of `suffix`; always when that is empty.
bool endsWith(std::string_view text, std::string_view suffix);

/// True when some run of whole characters of `text` is `needle`, which must not be empty.
bool containsText(std::string_view text, std::string_view needle);

/// `text` without every run of whole characters that is `needle`, which must not be empty; the
/// runs are found from the front and do not overlap.
std::string withoutText(std::string_view text, std::string_view needle);

/// True when `text`, its letters made small, is `literal`, which must be ASCII without capitals.
bool equalsWhenLowercased(std::string_view text, std::string_view literal);

namespace detail {

inline bool isASCII(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}

// Different ASCII at either end settles it: no character that ends or begins with one is
// canonically equivalent to a character that ends or begins with the other.
inline bool differInASCII(char a, char b) {
    return a != b && isASCII(a) && isASCII(b);
}

bool textEqualsInFull(std::string_view a, std::string_view b);
bool beginsWithInFull(std::string_view text, std::string_view prefix);
bool endsWithInFull(std::string_view text, std::string_view suffix);

} // namespace detail

// Nearly every comparison of a name with a rule's text ends at its first or last byte; that much
// is worth having without a call.

inline bool textEquals(std::string_view a, std::string_view b) {
    if (a.empty() || b.empty()) {
        return a.empty() == b.empty();
    }
    return !detail::differInASCII(a.front(), b.front()) && detail::textEqualsInFull(a, b);
}

inline bool beginsWith(std::string_view text, std::string_view prefix) {
    if (text.empty() || prefix.empty()) {
        return prefix.empty();
    }
    return !detail::differInASCII(text.front(), prefix.front()) &&
           detail::beginsWithInFull(text, prefix);
}

inline bool endsWith(std::string_view text, std::string_view suffix) {
    if (text.empty() || suffix.empty()) {
        return suffix.empty();
    }
    return !detail::differInASCII(text.back(), suffix.back()) &&
           detail::endsWithInFull(text, suffix);
}

/// True when `text` has the same characters as one of `list`.
template <std::size_t N>
bool isOneOf(std::string_view text, const std::string_view (&list)[N]) {
    return std::any_of(std::begin(list), std::end(list),
                       [text](std::string_view entry) { return textEquals(text, entry); });
}

} // namespace corvid
