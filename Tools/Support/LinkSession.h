#pragma once

#include "Extensions/FileManagers/Link/BadgeCache.h"
#include "Extensions/FileManagers/Link/LinkClient.h"
#include "Platform/Unix/Deadline.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// What went wrong, as a sentence for people.
class LinkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A front end for a terminal: the Finder link of a program that has nothing to do meanwhile, so
/// each operation waits for its answer until a given moment, and no longer, whatever the extension
/// does. One thread.
class LinkSession : private link::LinkClient::Delegate {
public:
    struct Options {
        std::string frontEnd = "corvid";
        /// Whether the extension may be started when it is not running.
        bool mayStart = true;
    };

    explicit LinkSession(const Options& options);

    /// Connects and waits until the extension has said what its volume is. Throws LinkError.
    void open(const Deadline& deadline);

    const std::string& volume() const { return volume_; }
    link::HostState hostState() const { return hostState_; }
    /// What people read for a badge; its identifier when the extension gave no label.
    std::string label(std::string_view badge) const;
    link::BadgeCache& badges() { return cache_; }

    /// The menu of a selection in `folder`. Throws LinkError when no answer comes.
    link::MenuReply menu(const std::string& folder, std::vector<link::SelectedItem> selection,
                         std::uint8_t kind, const Deadline& deadline);
    link::ClickOutcome click(std::uint32_t menu, std::uint32_t item, const Deadline& deadline);
    link::StatusReply status(const Deadline& deadline);
    /// The time from a question over the link to its answer.
    std::chrono::microseconds ping(const Deadline& deadline);

    /// Handles what comes until `isDone()` holds, or `deadline` (nothing: without end) has passed,
    /// also while things keep coming. Whether it held. `otherFd`, unless -1, ends the wait as well
    /// when it is readable. Throws LinkError when the connection is lost while waiting, unless that
    /// is borne.
    bool wait(const std::function<bool()>& isDone, const std::optional<Deadline>& deadline,
              int otherFd = -1);

    /// From now on a lost connection is had again, instead of ending the session.
    void bearLoss();
    /// Why there is no connection at the moment; empty when there is one.
    const std::string& loss() const { return loss_; }

    /// Called for each folder of which badges have changed.
    std::function<void(const std::string& folder, const std::vector<std::string>& names)>
        badgesChanged;
    /// Called when the host, the volume or the connection has changed.
    std::function<void()> stateChanged;

private:
    void linkUp() override;
    void linkDown(const std::string& reason) override;
    void linkRefused(const std::string& reason) override;
    void received(link::Message message) override;
    void woken() override;

    link::LinkClient client_;
    link::BadgeCache cache_;
    std::string volume_;
    std::vector<link::BadgeKind> kinds_;
    link::HostState hostState_ = link::HostState::absent;
    bool hasHostState_ = false;
    unsigned lossesToBear_;
    bool isRefused_ = false;
    std::string loss_;
    std::optional<link::MenuReply> menu_;
    std::optional<link::ClickReply> click_;
    std::optional<link::StatusReply> status_;
    std::optional<link::Pong> pong_;
};

/// The folder of the running program.
std::string programFolder();

} // namespace corvid
