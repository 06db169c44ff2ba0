#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace corvid {

/// Whether `stream` goes to a terminal that a person looks at: then symbols may be drawn on it.
bool isTerminal(std::FILE* stream);

/// Whether colours may be written to `stream`: a terminal that is not called "dumb", and NO_COLOR
/// is not set, or empty (https://no-color.org).
bool mayColour(std::FILE* stream);

/// The colours that the tools use, as the terminal's own palette has them.
enum class Colour { none, red, green, yellow, blue, magenta, cyan, grey, bold };

/// `text` in `colour` when `isOn`, else as it is.
std::string coloured(std::string_view text, Colour colour, bool isOn);

/// How a badge looks in a terminal; the symbol is one column wide.
struct BadgeLook {
    std::string_view symbol;
    Colour colour;
};
/// The look of the badge with this identifier; a blank for none, and for one that is not known.
BadgeLook badgeLook(std::string_view identifier);

/// Rows that fit on the terminal of `stream`; 0 when it is none.
unsigned terminalRows(std::FILE* stream);

/// How many columns `text` takes, with one for each character that is not a combining mark; what a
/// terminal draws two columns wide counts as two where the system's locale says so.
std::size_t columns(std::string_view text);

} // namespace corvid
