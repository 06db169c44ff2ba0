#include "Extensions/FileManagers/Gtk/MenuCache.h"

#include <algorithm>
#include <poll.h>
#include <utility>

namespace corvid::gtk {

MenuCache::MenuCache(link::LinkClient& client, std::function<void()> changed)
    : client_(client), changed_(std::move(changed)) {}

MenuCache::Entry& MenuCache::entryOf(const MenuSelection& selection) {
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return entry.selection == selection;
    });
    Entry entry;
    if (found != entries_.end()) {
        entry = std::move(*found);
        entries_.erase(found);
    } else {
        entry.selection = selection;
    }
    entries_.push_front(std::move(entry));
    if (entries_.size() > kMaxMenus) {
        entries_.pop_back();
    }
    return entries_.front();
}

const MenuCache::KnownMenu* MenuCache::menu(const MenuSelection& selection) {
    if (!client_.isUp()) {
        return nullptr;
    }
    Entry& entry = entryOf(selection);
    const bool isFresh = Clock::now() - entry.answered < kFreshness;
    if (entry.request == 0 && !(entry.isKnown && entry.menu.isAnswer && isFresh) &&
        !(entry.isOutside && isFresh)) {
        ask(entry);
    }
    if (!entry.isKnown && !entry.isOutside && entry.request != 0 && !isSlow_) {
        waitFor(entry.request);
    }
    // What came meanwhile went into the entries; this one is still the first.
    Entry& answered = entries_.front();
    if (answered.isOutside) {
        return nullptr;
    }
    if (!answered.isKnown) {
        answered.menu.isAnswer = false;
        answered.wasShownWithout = true;
    }
    return &answered.menu;
}

void MenuCache::ask(Entry& entry) {
    link::MenuRequest request;
    request.request = client_.nextRequest();
    request.kind = entry.selection.isBackground ? 1 : 0;
    request.context = entry.selection.isBackground ? 2 : 1;
    request.folder = entry.selection.folder;
    request.selection = entry.selection.items;
    entry.request = client_.send(request) ? request.request : 0;
}

void MenuCache::waitFor(std::uint32_t request) {
    const auto isAnswered = [&] {
        return std::none_of(entries_.begin(), entries_.end(),
                            [&](const Entry& entry) { return entry.request == request; });
    };
    isWaiting_ = true;
    const Clock::time_point deadline = Clock::now() + kPatience;
    while (!isAnswered() && client_.isUp()) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{client_.fd(), POLLIN, 0};
        if (left <= 0 || poll(&entry, 1, static_cast<int>(left)) == 0) {
            isSlow_ = true;
            break;
        }
        client_.dispatch();
    }
    isWaiting_ = false;
}

void MenuCache::click(std::uint32_t number, std::uint32_t item) {
    client_.send(link::Click{client_.nextRequest(), number, item});
}

void MenuCache::linkUp() {
    // The menus of an earlier connection cannot be clicked in any more.
    entries_.clear();
    isSlow_ = false;
}

void MenuCache::received(const link::MenuReply& reply) {
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return entry.request == reply.request;
    });
    if (found == entries_.end()) {
        return;
    }
    Entry& entry = *found;
    entry.request = 0;
    entry.answered = Clock::now();
    if (reply.outcome == link::MenuOutcome::superseded) {
        return;
    }
    entry.isOutside = reply.outcome == link::MenuOutcome::notOnVolume;
    if (reply.outcome == link::MenuOutcome::hostFailed && entry.isKnown) {
        return;
    }
    isSlow_ = reply.outcome == link::MenuOutcome::hostFailed;
    entry.isKnown = reply.outcome == link::MenuOutcome::made;
    const bool isOther =
        std::exchange(entry.wasShownWithout, false) || entry.menu.entries != reply.entries;
    entry.menu = {reply.menu, reply.title, reply.entries, entry.isKnown};
    if (isOther && !isWaiting_) {
        changed_();
    }
}

void MenuCache::received(const link::HostStateChange& change) {
    isSlow_ = change.state == link::HostState::notAnswering;
    for (Entry& entry : entries_) {
        entry.answered = {};
    }
}

} // namespace corvid::gtk
