#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace corvid {

/// What decides where copied text goes; in tests, made up.
struct Session {
    /// An environment variable; empty when it is not set.
    std::function<std::string(const char* name)> environment;
    /// The terminal to write to when there is no desktop.
    std::string terminal = "/dev/tty";

    static Session current();

    bool hasWayland() const { return !environment("WAYLAND_DISPLAY").empty(); }
    bool hasX11() const { return !environment("DISPLAY").empty(); }

    /// The full path of `program` on PATH; nothing when it is not there.
    std::optional<std::string> find(const std::string& program) const;
};

/// The command that takes the text of the clipboard on its standard input: wl-copy, xclip or xsel.
/// Nothing without a desktop, or without any of them.
std::optional<std::vector<std::string>> clipboardCommand(const Session& session);

/// What tells a terminal to put `text` on its clipboard (xterm's control sequence OSC 52).
std::string terminalClipboardSequence(const std::string& text);

/// Puts `text` on the clipboard: of the desktop by a program, else of the terminal.
/// Nothing when done, else what is missing. Any thread; waits for the
/// program as runCommand() does, and for the terminal for a second.
std::optional<std::string> copyToClipboard(const std::string& text, const Session& session);

} // namespace corvid
