// A host application for the storm: its badges are told to it, and it tells of every click.
//
//   storm_host FOLDER
//
// A badge follows from the item's path alone unless a line of standard input has said otherwise.
// Each line is one of these; PATH is the bytes of the path below FOLDER in hexadecimal:
//   badge PATH BADGE    the item has that badge from now on
//   push PATH BADGE     the same, and everybody is told
//   show PATH BADGE     the same, and whoever shows the folder is told
//   pause MILLISECONDS  the next answer comes that late
//   serve               the folder is served from here on
// It ends on SIGTERM or SIGINT, or when standard input ends. Its events are lines of JSON.

#include "Platform/Unix/OwnedFd.h"

#include <CorvidHostKit/Host.h>
#include <nlohmann/json.hpp>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using namespace corvid::hostkit;

constexpr std::array<const char*, 8> kBadges = {
    "cloud", "inProgress",   "checkedOut", "finishedTransfer",
    "error", "accessDenied", "synced",     "syncedpartial"};
/// Just below what a menu may have.
constexpr std::size_t kManyEntries = 19'000;
constexpr std::string_view kNameWithManyEntries = "many-entries";

/// FNV-1a; what drives the storm computes the same.
std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : text) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    return hash;
}

std::string hexOf(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        hex += kDigits[value >> 4];
        hex += kDigits[value & 15];
    }
    return hex;
}

std::string bytesOf(std::string_view hex) {
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        unsigned value = 0;
        std::from_chars(hex.data() + at, hex.data() + at + 2, value, 16);
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// One line, in one write: half a line would be lost with the process.
void tell(const nlohmann::json& event) {
    const std::string line =
        event.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + "\n";
    for (std::size_t at = 0; at < line.size();) {
        const ssize_t count = ::write(STDOUT_FILENO, line.data() + at, line.size() - at);
        if (count <= 0) {
            return;
        }
        at += static_cast<std::size_t>(count);
    }
}

class StormHost : public Application {
public:
    explicit StormHost(std::string folder) : folder_(std::move(folder)) {}

    void setBadge(const std::string& path, const std::string& badge) {
        const std::lock_guard lock(mutex_);
        badges_[path] = badge;
    }

    void pauseOnce(std::chrono::milliseconds pause) { pause_ = pause.count(); }

    /// Nothing is waited for any more.
    void hurry() {
        const std::lock_guard lock(mutex_);
        isInHurry_ = true;
        hurried_.notify_all();
    }

private:
    std::string badge(const std::string& path) override {
        takePause();
        const std::string item = itemOf(path);
        const std::lock_guard lock(mutex_);
        const auto told = badges_.find(item);
        return told != badges_.end() ? told->second : kBadges[hashOf(item) % kBadges.size()];
    }

    std::vector<MenuItem> menu(const std::vector<std::string>& paths, bool) override {
        takePause();
        MenuItem mark{.title = "Mark", .action = "mark", .submenu = {}};
        MenuItem deeper{.title = "More", .action = {}, .submenu = {}};
        deeper.submenu.push_back({.title = "Deeper", .action = "deeper", .submenu = {}});
        std::vector<MenuItem> items{mark, MenuItem::separator(), deeper};
        if (!paths.empty() && paths.front().ends_with(kNameWithManyEntries)) {
            while (items.size() < kManyEntries) {
                items.push_back({.title = "Entry " + std::to_string(items.size()),
                                 .action = "mark",
                                 .submenu = {}});
            }
        }
        return items;
    }

    void actionPerformed(const Click& click) override {
        nlohmann::json paths = nlohmann::json::array();
        for (const std::string& path : click.paths) {
            paths.push_back(hexOf(itemOf(path)));
        }
        tell({{"event", "click"}, {"action", click.action}, {"paths", paths}});
    }

    void problem(const std::string& text) override {
        // What strangers send is reported each time; the first few say enough.
        constexpr int kMaxProblems = 200;
        if (++problems_ <= kMaxProblems) {
            tell({{"event", "problem"}, {"text", text}});
        }
    }

    std::string itemOf(const std::string& path) const {
        return path.size() > folder_.size() ? path.substr(folder_.size() + 1) : std::string();
    }

    void takePause() {
        const auto pause = std::chrono::milliseconds(pause_.exchange(0));
        std::unique_lock lock(mutex_);
        hurried_.wait_for(lock, pause, [this] { return isInHurry_; });
    }

    const std::string folder_;
    std::atomic<std::int64_t> pause_{0};
    int problems_ = 0;
    std::mutex mutex_;
    std::condition_variable hurried_;
    std::unordered_map<std::string, std::string> badges_;
    bool isInHurry_ = false;
};

/// Takes whole lines from standard input until it ends or a signal says to end.
class Orders {
public:
    Orders() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        // Before there is any other thread, so that none of them gets one.
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        signals_ = corvid::OwnedFd(::signalfd(-1, &signals, SFD_CLOEXEC));
    }

    std::optional<std::string> next() {
        while (true) {
            if (const std::size_t end = text_.find('\n'); end != std::string::npos) {
                std::string line = text_.substr(0, end);
                text_.erase(0, end + 1);
                return line;
            }
            std::array<pollfd, 2> waited{{{signals_.get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
            ::poll(waited.data(), waited.size(), -1);
            if (waited[0].revents != 0) {
                return std::nullopt;
            }
            std::array<char, 65536> buffer;
            const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
            if (count <= 0) {
                return std::nullopt;
            }
            text_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

private:
    corvid::OwnedFd signals_;
    std::string text_;
};

void follow(Orders& orders, StormHost& application, const std::string& folder) {
    std::unique_ptr<Host> host;
    while (const auto line = orders.next()) {
        std::istringstream words(*line);
        std::string order;
        std::string path;
        std::string badge;
        words >> order >> path >> badge;
        if (order == "serve") {
            host = std::make_unique<Host>(folder, application);
            tell({{"event", "serving"}});
        } else if (order == "pause") {
            application.pauseOnce(std::chrono::milliseconds(std::atoi(path.c_str())));
        } else {
            const std::string item = bytesOf(path);
            application.setBadge(item, badge);
            if (host != nullptr && order != "badge") {
                host->push(std::string(folder).append("/").append(item), badge,
                           order == "push" ? PushTo::everyone : PushTo::whoShowsTheFolder);
            }
        }
    }
    application.hurry();
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: storm_host FOLDER\n";
        return 2;
    }
    ::signal(SIGPIPE, SIG_IGN);
    Orders orders;
    StormHost application(argv[1]);
    follow(orders, application, argv[1]);
    return 0;
} catch (const std::exception& error) {
    std::cerr << "storm_host: " << error.what() << "\n";
    return 1;
}
