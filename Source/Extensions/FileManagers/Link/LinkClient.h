#pragma once

#include "Extensions/FileManagers/Link/ExtensionStarter.h"
#include "Extensions/FileManagers/Link/LinkChannel.h"
#include "Platform/Unix/OwnedFd.h"
#include "Platform/Unix/RuntimeFolder.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvid::link {

/// A front end's end of the Finder link. It never waits: its owner polls fd() for reading and then
/// calls dispatch(), on one thread, on which everything else is called as well.
///
/// It connects to the extension, starts it when there is none, and connects anew, later each time,
/// when the connection is lost; at once when somebody else has started the extension.
class LinkClient {
public:
    /// What comes from the other end; called from within dispatch().
    class Delegate {
    public:
        virtual ~Delegate() = default;
        /// Greetings are exchanged; requests may be sent. Nothing of an earlier connection counts.
        virtual void linkUp() = 0;
        /// The connection is lost, or could not be had; `reason` is a sentence. It is tried again.
        virtual void linkDown(const std::string& reason) = 0;
        /// The two ends have no version in common; it is not tried again.
        virtual void linkRefused(const std::string& reason) = 0;
        /// Anything else that the extension says.
        virtual void received(Message message) = 0;
        /// wake() was called.
        virtual void woken() = 0;
    };

    struct Options {
        std::string frontEnd;  ///< what the front end is called in the status
        std::string extension; ///< the program to start when none runs; empty: none is started
        std::vector<std::string> extensionArguments;
        std::uint16_t oldestVersion = kOldestVersion;
        std::uint16_t newestVersion = kNewestVersion;
        RuntimeFolder runtimeFolder = RuntimeFolder::ofThisUser();
        /// Until it is tried anew to connect; each further time twice as long, 30 s at most.
        std::chrono::milliseconds firstPause{100};
        /// How long the program may take to say that it runs, or why not; then it is ended, and
        /// that is a loss like any other. A start takes milliseconds.
        std::chrono::milliseconds startPatience = kStartPatience;
    };
    static constexpr std::chrono::seconds kStartPatience{20};

    /// An extension that leaves this much unread is hung up on, and connected to anew. One message
    /// of kMaxFrameSize may come on top.
    static constexpr std::size_t kMaxUnsent = 2 * kMaxFrameSize;

    /// Nothing happens before open(). `delegate` must outlive this.
    LinkClient(Delegate& delegate, Options options);

    /// Begins to connect, if it has not. Returns at once.
    void open();

    int fd() const { return epoll_.get(); }
    /// Does what there is to do, a bounded piece at a time: fd() stays readable for the rest.
    void dispatch();
    /// Has dispatch() call woken() soon: for an owner that wants to send what it gathers meanwhile
    /// in one piece.
    void wake();

    bool isUp() const { return state_ == State::up; }
    /// The extension was started and has not said yet that it runs.
    bool isStarting() const { return state_ == State::starting; }
    /// A number for a request whose answer shall be known by it; never 0.
    std::uint32_t nextRequest();
    /// Sends `message`. False when the link is not up, the message exceeds a bound, or the
    /// extension leaves kMaxUnsent unread; then the link is lost at the next dispatch(), for what
    /// was not sent would be missed.
    bool send(const Message& message);

private:
    enum class State : std::uint8_t { closed, starting, greeting, up, waiting, refused };

    void await(int fd, std::uint32_t events, bool isNew);
    void connect();
    void startExtension();
    void pollStarter();
    void giveUpStart();
    void receive();
    void handle(Message message);
    void lose(const std::string& reason);
    void startTimer(std::chrono::milliseconds pause);
    void watchForExtension();
    void readFolderEvents();
    void flush();

    Delegate& delegate_;
    const Options options_;
    OwnedFd epoll_;
    OwnedFd timer_;
    OwnedFd wakeFd_;
    OwnedFd folderEvents_;    ///< while waiting, if the system has any to give
    std::string awaitedName_; ///< of the file whose coming is news
    State state_ = State::closed;
    bool mayStart_ = true; ///< the extension has not been started since the link was last lost
    bool awaitsRoom_ = false;
    bool isOverrun_ = false; ///< the extension leaves too much unread
    std::optional<LinkChannel> channel_;
    std::optional<ExtensionStarter> starter_; ///< until nothing is left of the start
    std::chrono::milliseconds pause_;
    std::chrono::steady_clock::time_point upSince_;
    std::uint32_t lastRequest_ = 0;
};

} // namespace corvid::link
