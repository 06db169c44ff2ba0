#include "Tools/Support/Terminal.h"

#include "Core/Base/UTF8.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cwchar>

namespace corvid {

bool isTerminal(std::FILE* stream) {
    return ::isatty(::fileno(stream)) == 1;
}

bool mayColour(std::FILE* stream) {
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isTerminal(stream) && (noColour == nullptr || *noColour == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string coloured(std::string_view text, Colour colour, bool isOn) {
    constexpr std::array<std::string_view, 9> kCodes{"",   "31", "32", "33", "34",
                                                     "35", "36", "90", "1"};
    if (!isOn || colour == Colour::none) {
        return std::string(text);
    }
    return "\x1b[" + std::string(kCodes.at(static_cast<std::size_t>(colour))) + "m" +
           std::string(text) + "\x1b[0m";
}

BadgeLook badgeLook(std::string_view identifier) {
    struct Row {
        std::string_view identifier;
        BadgeLook look;
    };
    static constexpr std::array<Row, 8> kRows{{
        {"cloud", {"☁", Colour::blue}},
        {"inProgress", {"↻", Colour::cyan}},
        {"checkedOut", {"✎", Colour::magenta}},
        {"finishedTransfer", {"⇡", Colour::green}},
        {"error", {"✗", Colour::red}},
        {"accessDenied", {"⊘", Colour::red}},
        {"synced", {"✓", Colour::green}},
        {"syncedpartial", {"◐", Colour::yellow}},
    }};
    for (const Row& row : kRows) {
        if (row.identifier == identifier) {
            return row.look;
        }
    }
    return {" ", Colour::none};
}

unsigned terminalRows(std::FILE* stream) {
    winsize size{};
    return ::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 ? size.ws_row : 0;
}

std::size_t columns(std::string_view text) {
    std::size_t count = 0;
    while (!text.empty()) {
        const DecodedScalar next = decodeUTF8(text);
        const int width = ::wcwidth(static_cast<wchar_t>(next.scalar));
        count += static_cast<std::size_t>(width < 0 ? 1 : width);
        text.remove_prefix(next.length);
    }
    return count;
}

} // namespace corvid
