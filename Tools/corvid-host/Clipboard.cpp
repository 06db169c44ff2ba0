#include "Tools/corvid-host/Clipboard.h"

#include "Platform/Unix/OwnedFd.h"
#include "Tools/corvid-host/ChildProcess.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace corvid {

namespace {

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
    const OwnedFd terminal(open(session.terminal.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    if (!terminal) {
        return "there is no clipboard to copy to; install wl-clipboard or xclip, or start the host "
               "in a terminal";
    }
    const std::string sequence = terminalClipboardSequence(text);
    const ssize_t written = write(terminal.get(), sequence.data(), sequence.size());
    if (written != static_cast<ssize_t>(sequence.size())) {
        return fmt::format("the terminal {} did not take the text to copy", session.terminal);
    }
    return std::nullopt;
}

} // namespace corvid
