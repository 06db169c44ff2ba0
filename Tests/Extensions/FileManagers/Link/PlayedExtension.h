#pragma once

#include "Extensions/FileManagers/Link/LinkChannel.h"
#include "Platform/Unix/RuntimeFolder.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <optional>
#include <utility>
#include <variant>

namespace corvid::link {

/// The extension's end of a link, played by the test on its own thread: it says what the test says,
/// and nothing else.
class PlayedExtension {
public:
    static constexpr std::chrono::seconds kPatience{60};

    explicit PlayedExtension(const RuntimeFolder& folder)
        : opened_(folder.open(RuntimeFolder::IfMissing::create)),
          listener_(listenIn(opened_.fd.get())) {}

    /// Whether a front end is there to be accepted.
    bool isCalled() {
        pollfd entry{listener_.get(), POLLIN, 0};
        return ::poll(&entry, 1, 0) == 1;
    }
    /// Takes the next front end in; nothing was said to it yet.
    void accept() {
        waitFor(listener_.get());
        channel_.emplace(OwnedFd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    }
    void hangUp() { channel_.reset(); }

    void say(const Message& message) {
        ASSERT_TRUE(channel_->send(message));
        ASSERT_TRUE(channel_->flush());
        ASSERT_EQ(channel_->unsent(), 0U);
    }

    /// The next thing that the front end has said; a test that is told something else fails.
    template <class Kind>
    Kind hear() {
        while (true) {
            if (std::optional<Message> message = channel_->next()) {
                if (auto* const heard = std::get_if<Kind>(&*message)) {
                    return std::move(*heard);
                }
                ADD_FAILURE() << "the front end said message " << message->index();
                return {};
            }
            waitFor(channel_->fd());
            if (!channel_->receive()) {
                ADD_FAILURE() << "the front end hung up";
                return {};
            }
        }
    }

private:
    static void waitFor(int fd) {
        pollfd entry{fd, POLLIN, 0};
        ASSERT_EQ(::poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())),
                  1);
    }

    RuntimeFolder::Opened opened_;
    OwnedFd listener_;
    std::optional<LinkChannel> channel_;
};

} // namespace corvid::link
