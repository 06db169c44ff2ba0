#include "Tools/corvid-host/Clipboard.h"

#include "Platform/Unix/Deadline.h"
#include "Platform/Unix/OwnedFd.h"
#include "Tools/corvid-host/ChildProcess.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace corvid {

namespace {

/// How long a terminal may take to read the text.
constexpr std::chrono::milliseconds kLongestTerminal(1000);

std::string base64(std::string_view bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j) {
            const std::size_t at = i + j;
            group = (group << 8) | (at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            text += i + j <= bytes.size() ? kDigits[(group >> (18 - 6 * j)) & 63U] : '=';
        }
    }
    return text;
}

/// False when `terminal`, which was opened without waiting, has not taken all at the deadline.
bool writeWithin(int terminal, std::string_view text, const Deadline& deadline) {
    while (!text.empty()) {
        const ssize_t count = write(terminal, text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        if ((errno != EAGAIN && errno != EINTR) || deadline.passed()) {
            return false;
        }
        pollfd source{terminal, POLLOUT, 0};
        const timespec left = deadline.timespecLeft();
        ppoll(&source, 1, &left, nullptr);
    }
    return true;
}

} // namespace

Session Session::current() {
    return {[](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    }};
}

std::optional<std::string> Session::find(const std::string& program) const {
    const std::string path = environment("PATH");
    std::string_view rest = path;
    while (!rest.empty()) {
        const std::size_t end = rest.find(':');
        std::string candidate = fmt::format("{}/{}", rest.substr(0, end), program);
        if (candidate.front() == '/' && access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return std::nullopt;
}

std::optional<std::vector<std::string>> clipboardCommand(const Session& session) {
    if (session.hasWayland()) {
        if (const auto program = session.find("wl-copy")) {
            return std::vector<std::string>{*program};
        }
    }
    if (session.hasX11()) {
        if (const auto program = session.find("xclip")) {
            return std::vector<std::string>{*program, "-selection", "clipboard"};
        }
        if (const auto program = session.find("xsel")) {
            return std::vector<std::string>{*program, "--clipboard", "--input"};
        }
    }
    return std::nullopt;
}

std::string terminalClipboardSequence(const std::string& text) {
    return "\033]52;c;" + base64(text) + "\a";
}

std::optional<std::string> copyToClipboard(const std::string& text, const Session& session) {
    if (const auto command = clipboardCommand(session)) {
        return runCommand(*command, text);
    }
    const OwnedFd terminal(
        open(session.terminal.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!terminal) {
        return "there is no clipboard to copy to; install wl-clipboard or xclip, or start the host "
               "in a terminal";
    }
    const std::string sequence = terminalClipboardSequence(text);
    if (!writeWithin(terminal.get(), sequence, Deadline(kLongestTerminal))) {
        return fmt::format("the terminal {} did not take the text to copy; is it stopped (Ctrl-S)?",
                           session.terminal);
    }
    return std::nullopt;
}

} // namespace corvid
