#include "Tools/Support/LinkSession.h"

#include <poll.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

namespace corvid {

using namespace link;

std::string programFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

namespace {

/// How often a first attempt may fail: it may meet an extension that is just ending, or one that
/// another front end is just starting.
constexpr unsigned kFirstLosses = 3;

} // namespace

LinkSession::LinkSession(const Options& options)
    : client_(*this, {options.frontEnd,
                      options.mayStart ? programFolder() + "/corvid-finder-ext" : std::string(),
                      {}}),
      cache_(client_,
             [this](const std::string& folder, const std::vector<std::string>& names,
                    link::BadgeCache::Change /*change*/) {
                 if (badgesChanged) {
                     badgesChanged(folder, names);
                 }
             }),
      lossesToBear_(options.mayStart ? kFirstLosses : 0) {}

void LinkSession::open(const Deadline& deadline) {
    client_.open();
    const bool isOpen = wait([this] { return !volume_.empty() && hasHostState_; }, deadline);
    lossesToBear_ = 0;
    if (isOpen) {
        return;
    }
    if (!client_.isUp() && !loss_.empty()) {
        throw LinkError(loss_);
    }
    if (client_.isStarting()) {
        throw LinkError("The extension was started, but has not said in time that it runs. Should "
                        "it not come to run, end corvid-finder-ext.");
    }
    throw LinkError(client_.isUp()
                        ? "The extension runs, but has not said in time what its volume is."
                        : "The extension does not answer. Should that last, end corvid-finder-ext, "
                          "and the next command starts another.");
}

void LinkSession::bearLoss() {
    lossesToBear_ = std::numeric_limits<unsigned>::max();
}

bool LinkSession::wait(const std::function<bool()>& isDone, const std::optional<Deadline>& deadline,
                       int otherFd) {
    while (!isDone()) {
        if (isRefused_ || (!loss_.empty() && lossesToBear_ == 0)) {
            throw LinkError(loss_);
        }
        std::array<pollfd, 2> fds{{{client_.fd(), POLLIN, 0}, {otherFd, POLLIN, 0}}};
        const std::timespec left = deadline ? deadline->timespecLeft() : std::timespec{};
        const bool isLast = deadline && left.tv_sec == 0 && left.tv_nsec == 0;
        const int count = ::ppoll(fds.data(), fds.size(), deadline ? &left : nullptr, nullptr);
        if (fds[0].revents != 0) {
            client_.dispatch();
        }
        if (isLast || (count > 0 && fds[1].revents != 0)) {
            return isDone();
        }
    }
    return true;
}

MenuReply LinkSession::menu(const std::string& folder, std::vector<SelectedItem> selection,
                            std::uint8_t kind, const Deadline& deadline) {
    menu_.reset();
    MenuRequest request;
    request.request = client_.nextRequest();
    request.kind = kind;
    request.folder = folder;
    request.selection = std::move(selection);
    if (!client_.send(request)) {
        throw LinkError("The selection is more than the link carries: choose fewer items.");
    }
    if (!wait([&] { return menu_ && menu_->request == request.request; }, deadline)) {
        throw LinkError("The extension did not answer with a menu in time.");
    }
    return *std::exchange(menu_, std::nullopt);
}

ClickOutcome LinkSession::click(std::uint32_t menu, std::uint32_t item, const Deadline& deadline) {
    click_.reset();
    const std::uint32_t request = client_.nextRequest();
    client_.send(Click{request, menu, item});
    if (!wait([&] { return click_ && click_->request == request; }, deadline)) {
        throw LinkError("The extension did not answer to the click in time.");
    }
    return click_->outcome;
}

StatusReply LinkSession::status(const Deadline& deadline) {
    status_.reset();
    const std::uint32_t request = client_.nextRequest();
    client_.send(StatusRequest{request});
    if (!wait([&] { return status_ && status_->request == request; }, deadline)) {
        throw LinkError("The extension did not say how it is in time.");
    }
    return *std::exchange(status_, std::nullopt);
}

std::chrono::microseconds LinkSession::ping(const Deadline& deadline) {
    pong_.reset();
    const std::uint32_t request = client_.nextRequest();
    const auto start = std::chrono::steady_clock::now();
    client_.send(Ping{request});
    if (!wait([&] { return pong_ && pong_->request == request; }, deadline)) {
        throw LinkError("The extension did not answer in time.");
    }
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                 start);
}

std::string LinkSession::label(std::string_view badge) const {
    for (const BadgeKind& kind : kinds_) {
        if (kind.identifier == badge && !kind.label.empty()) {
            return kind.label;
        }
    }
    return std::string(badge);
}

void LinkSession::linkUp() {
    loss_.clear();
    volume_.clear();
    hasHostState_ = false;
    cache_.linkUp();
}

void LinkSession::linkDown(const std::string& reason) {
    if (!std::exchange(loss_, reason).empty() && lossesToBear_ > 0) {
        --lossesToBear_;
    }
    if (stateChanged) {
        stateChanged();
    }
}

void LinkSession::linkRefused(const std::string& reason) {
    loss_ = reason;
    isRefused_ = true;
}

void LinkSession::received(Message message) {
    if (auto* const badges = std::get_if<Badges>(&message)) {
        cache_.received(*badges);
    } else if (auto* const volume = std::get_if<Volume>(&message)) {
        volume_ = volume->folder;
        cache_.received(*volume);
    } else if (auto* const kinds = std::get_if<BadgeKinds>(&message)) {
        kinds_ = std::move(kinds->kinds);
    } else if (auto* const host = std::get_if<HostStateChange>(&message)) {
        hostState_ = host->state;
        hasHostState_ = true;
    } else if (auto* const menu = std::get_if<MenuReply>(&message)) {
        menu_ = std::move(*menu);
    } else if (auto* const click = std::get_if<ClickReply>(&message)) {
        click_ = *click;
    } else if (auto* const status = std::get_if<StatusReply>(&message)) {
        status_ = std::move(*status);
    } else if (auto* const pong = std::get_if<Pong>(&message)) {
        pong_ = *pong;
    }
    const bool isState =
        std::holds_alternative<Volume>(message) || std::holds_alternative<HostStateChange>(message);
    if (isState && stateChanged) {
        stateChanged();
    }
}

void LinkSession::woken() {
    cache_.woken();
}

} // namespace corvid
