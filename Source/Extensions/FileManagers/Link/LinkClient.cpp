#include "Extensions/FileManagers/Link/LinkClient.h"

#include "Platform/Unix/FileEvents.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace corvid::link {

namespace {

/// A socket is there a moment before somebody listens to it.
constexpr std::chrono::milliseconds kBeforeListening{100};
constexpr std::chrono::milliseconds kLongestPause{30'000};
/// A link that held this long was a good one: the next loss is tried again soon.
constexpr std::chrono::seconds kGoodTime{10};

/// Empties the counter of an eventfd or a timerfd.
void drain(int fd) {
    std::uint64_t ignored = 0;
    [[maybe_unused]] const ssize_t bytes = ::read(fd, &ignored, sizeof ignored);
}

} // namespace

LinkClient::LinkClient(Delegate& delegate, Options options)
    : delegate_(delegate), options_(std::move(options)), epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), pause_(options_.firstPause) {
    await(timer_.get(), EPOLLIN, true);
    await(wakeFd_.get(), EPOLLIN, true);
}

void LinkClient::await(int fd, std::uint32_t events, bool isNew) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    ::epoll_ctl(epoll_.get(), isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd, &event);
}

void LinkClient::open() {
    if (state_ == State::closed) {
        connect();
    }
}

void LinkClient::connect() {
    const RuntimeFolder::Opened folder =
        options_.runtimeFolder.open(RuntimeFolder::IfMissing::fail);
    OwnedFd socket = folder.fd ? connectIn(folder.fd.get()) : OwnedFd();
    if (!socket) {
        const int error = folder.fd ? errno : ENOENT;
        if (error == EPERM) {
            lose("The extension that answers belongs to another user.");
        } else if (error == EAGAIN) {
            lose("The extension takes no more connections, so it probably hangs. End "
                 "corvid-finder-ext, and another one is started.");
        } else if (error != ENOENT && error != ECONNREFUSED) {
            lose(std::string("No connection to the extension can be made: ") +
                 std::strerror(error) + ".");
        } else if (mayStart_ && !options_.extension.empty()) {
            startExtension();
        } else {
            lose("The extension is not running.");
        }
        return;
    }
    folderEvents_.reset();
    channel_.emplace(std::move(socket));
    awaitsRoom_ = false;
    isOverrun_ = false;
    await(channel_->fd(), EPOLLIN, true);
    state_ = State::greeting;
    channel_->send(Hello{options_.oldestVersion, options_.newestVersion, options_.frontEnd});
    flush();
}

void LinkClient::startExtension() {
    mayStart_ = false;
    if (starter_) {
        if (starter_->poll() != ExtensionStarter::State::ready) {
            starter_->end();
        }
        if (!starter_->isOver()) {
            // There is one at a time, or they would add up where the kernel lets none of them end.
            lose(options_.extension + " was started earlier, does not answer, and has not ended.");
            return;
        }
    }
    std::string problem;
    starter_ = ExtensionStarter::start(options_.extension, options_.extensionArguments, problem);
    if (!starter_) {
        lose(problem);
        return;
    }
    state_ = State::starting;
    startTimer(options_.startPatience);
    await(starter_->fd(), EPOLLIN, true);
}

void LinkClient::pollStarter() {
    const ExtensionStarter::State result = starter_->poll();
    const std::string problem = starter_->problem();
    if (result == ExtensionStarter::State::failed) {
        starter_->end();
    }
    if (starter_->isOver()) {
        starter_.reset();
    }
    // One that was given up may still come to run; nobody is told a second time that it failed.
    if (result == ExtensionStarter::State::ready &&
        (state_ == State::starting || state_ == State::waiting)) {
        connect();
    } else if (result == ExtensionStarter::State::failed && state_ == State::starting) {
        lose(problem);
    }
}

void LinkClient::giveUpStart() {
    starter_->end();
    lose(options_.extension + " was started, but has not said within " +
         std::to_string(
             std::chrono::duration_cast<std::chrono::seconds>(options_.startPatience).count()) +
         " s that it runs. It was ended, and is started again later.");
}

void LinkClient::dispatch() {
    std::array<epoll_event, 8> events{};
    const int count = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), 0);
    for (int i = 0; i < count; ++i) {
        const int fd = events[static_cast<std::size_t>(i)].data.fd;
        const std::uint32_t what = events[static_cast<std::size_t>(i)].events;
        if (fd == wakeFd_.get()) {
            drain(fd);
            if (std::exchange(isOverrun_, false) && channel_) {
                lose("The extension has not read what it was told.");
            }
            delegate_.woken();
        } else if (fd == timer_.get()) {
            drain(fd);
            if (state_ == State::waiting) {
                mayStart_ = true;
                connect();
            } else if (state_ == State::starting) {
                giveUpStart();
            }
        } else if (fd == folderEvents_.get()) {
            readFolderEvents();
        } else if (starter_ && fd == starter_->fd()) {
            pollStarter();
        } else if (channel_ && fd == channel_->fd()) {
            if ((what & EPOLLOUT) != 0) {
                flush();
            }
            if (channel_ && (what & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
                receive();
            }
        }
    }
}

void LinkClient::receive() {
    const bool isOpen = channel_->receive();
    while (channel_) {
        std::optional<Message> message = channel_->next();
        if (!message) {
            break;
        }
        handle(std::move(*message));
    }
    if (channel_ && channel_->isBroken()) {
        lose("The extension sent what is no message of the link.");
    } else if (channel_ && !isOpen) {
        lose("The extension has ended.");
    }
}

void LinkClient::handle(Message message) {
    if (const auto* const welcome = std::get_if<Welcome>(&message)) {
        if (state_ != State::greeting || welcome->version < options_.oldestVersion ||
            welcome->version > options_.newestVersion) {
            lose("The extension answered with a greeting that was not asked for.");
            return;
        }
        state_ = State::up;
        mayStart_ = true;
        upSince_ = std::chrono::steady_clock::now();
        delegate_.linkUp();
        if (channel_) {
            delegate_.received(std::move(message));
        }
    } else if (const auto* const refused = std::get_if<Refused>(&message)) {
        const std::string reason = refused->reason;
        channel_.reset();
        state_ = State::refused;
        delegate_.linkRefused(reason);
    } else if (state_ == State::up) {
        delegate_.received(std::move(message));
    }
}

void LinkClient::lose(const std::string& reason) {
    if (state_ == State::up && std::chrono::steady_clock::now() - upSince_ > kGoodTime) {
        pause_ = options_.firstPause;
    }
    channel_.reset();
    state_ = State::waiting;
    startTimer(pause_);
    pause_ = std::min(2 * pause_, kLongestPause);
    watchForExtension();
    delegate_.linkDown(reason);
}

void LinkClient::startTimer(std::chrono::milliseconds pause) {
    itimerspec when{};
    when.it_value.tv_sec = pause.count() / 1000;
    when.it_value.tv_nsec = (pause.count() % 1000) * 1'000'000;
    ::timerfd_settime(timer_.get(), 0, &when, nullptr);
}

/// Has the system tell when the extension's socket comes, or the folder that it will be in. Where
/// it cannot, the timer alone has the connection tried again.
void LinkClient::watchForExtension() {
    constexpr std::uint32_t kComing = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;
    folderEvents_ = OwnedFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!folderEvents_) {
        return;
    }
    const std::string& folder = options_.runtimeFolder.path();
    awaitedName_ = kSocketName;
    if (::inotify_add_watch(folderEvents_.get(), folder.c_str(), kComing) < 0) {
        const std::size_t slash = folder.rfind('/');
        awaitedName_ = folder.substr(slash + 1);
        ::inotify_add_watch(folderEvents_.get(), folder.substr(0, slash).c_str(), kComing);
    }
    await(folderEvents_.get(), EPOLLIN, true);
}

void LinkClient::readFolderEvents() {
    bool hasCome = false;
    while (readFileEvents(folderEvents_.get(), [&](const FileEvent& event) {
        hasCome = hasCome || event.name == awaitedName_;
    })) {
    }
    if (hasCome && state_ == State::waiting) {
        pause_ = options_.firstPause;
        startTimer(kBeforeListening);
    }
}

void LinkClient::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd_.get(), &one, sizeof one);
}

std::uint32_t LinkClient::nextRequest() {
    if (++lastRequest_ == 0) {
        ++lastRequest_;
    }
    return lastRequest_;
}

bool LinkClient::send(const Message& message) {
    if (state_ != State::up) {
        return false;
    }
    if (channel_->unsent() >= kMaxUnsent) {
        isOverrun_ = true;
        wake();
        return false;
    }
    if (!channel_->send(message)) {
        return false;
    }
    flush();
    return true;
}

/// Sends what the socket takes; a broken connection shows when it is read from.
void LinkClient::flush() {
    channel_->flush();
    const bool needsRoom = channel_->unsent() > 0;
    if (needsRoom != awaitsRoom_) {
        awaitsRoom_ = needsRoom;
        await(channel_->fd(), needsRoom ? EPOLLIN | EPOLLOUT : EPOLLIN, false);
    }
}

} // namespace corvid::link
