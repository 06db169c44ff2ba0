#pragma once

#include <string>
#include <string_view>

namespace corvid {

/// Appends `text` to `out` so that it keeps to one line and no terminal or editor acts on it.
///
/// Control characters become `\n`, `\r`, `\t` or `\x1b`; line and paragraph separators, marks that
/// turn the direction of writing, invisible format characters and C1 controls become `\u{202e}`;
/// a byte that is not UTF-8 becomes `\xff`. A backslash is doubled, so that an escape cannot be
/// mistaken for text. Everything else stays. Any thread.
void appendPrintableText(std::string& out, std::string_view text);

/// The same as a new string.
std::string printableText(std::string_view text);

/// A text of many lines for a person, such as the differences between two files: as
/// printableText(), but newlines and tabs stay, and so does a backslash, which such texts are full
/// of. So what an escape says may be mistaken for text; a terminal acts on neither. Any thread.
std::string printableLines(std::string_view text);

} // namespace corvid
