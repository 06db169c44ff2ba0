#include "Tools/corvid-host/ChangesViewer.h"

#include "Platform/Unix/OwnedFd.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace corvid {

namespace {

constexpr std::string_view kSuffix = ".diff";

/// A new file that only this user may read; nothing when it cannot be made.
std::optional<std::string> writeFile(const Session& session, const std::string& text) {
    std::string folder = session.environment("XDG_RUNTIME_DIR");
    if (folder.empty()) {
        folder = std::filesystem::temp_directory_path().string();
    }
    std::string path = fmt::format("{}/corvid-changes-XXXXXX{}", folder, kSuffix);
    const OwnedFd file(mkostemps(path.data(), static_cast<int>(kSuffix.size()), O_CLOEXEC));
    if (!file) {
        return std::nullopt;
    }
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(file.get(), text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    if (written < text.size()) {
        unlink(path.c_str());
        return std::nullopt;
    }
    return path;
}

} // namespace

ChangesViewer::ChangesViewer(EventLog& log, Session session)
    : log_(log), session_(std::move(session)) {}

ChangesViewer::~ChangesViewer() {
    for (const std::string& file : files_) {
        unlink(file.c_str());
    }
}

void ChangesViewer::show(const std::string& diff) {
    const bool hasDesktop = session_.hasWayland() || session_.hasX11();
    const std::optional<std::string> opener = hasDesktop ? session_.find("xdg-open") : std::nullopt;
    if (!opener) {
        log_.sayLines("changes", diff, {{"diff", diff}});
        return;
    }
    const std::optional<std::string> file = writeFile(session_, diff);
    if (!file) {
        log_.problem(
            fmt::format("the changes could not be written to a file: {}", std::strerror(errno)));
        return;
    }
    files_.push_back(*file);
    if (const auto failure = programs_.start({*opener, *file})) {
        log_.problem(*failure);
        return;
    }
    log_.say("changes", "Opened the changes in " + *file, {{"file", *file}});
}

} // namespace corvid
