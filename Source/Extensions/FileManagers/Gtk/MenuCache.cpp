#include "Extensions/FileManagers/Gtk/MenuCache.h"

#include <algorithm>
#include <poll.h>
#include <string_view>
#include <unordered_set>
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

const MenuCache::KnownMenu* MenuCache::menu(const MenuSelection& selection, Use use) {
    Entry& entry = entryOf(selection);
    const bool mustTryAgain = entry.outcome == Entry::Outcome::failed && use == Use::opening;
    if (entry.request == 0 && (entry.outcome == Entry::Outcome::none || mustTryAgain ||
                               entry.isWrong || !isRecent(entry.answered))) {
        ask(entry);
    }
    // What is open is shown as it was, or a click in it would not find its entry.
    const bool hasNothingGood = entry.outcome == Entry::Outcome::none ||
                                entry.outcome == Entry::Outcome::failed ||
                                (entry.wasWrong && !isRecent(entry.opened));
    if (hasNothingGood && entry.request != 0) {
        if (use == Use::opening) {
            waitFor(entry.request, entry.asked + kPatience);
        } else if (entry.outcome == Entry::Outcome::none &&
                   Clock::now() - entry.asked < kPatience) {
            // Who opens the menu before the answer has come is to ask again, and will wait.
            entry.handedOut = Entry::HandedOut::nothing;
            changed_();
            return nullptr;
        }
    }
    // A link that broke while it was waited for has taken the entries with it.
    Entry& answered = entryOf(selection);
    if (answered.outcome == Entry::Outcome::outside) {
        return nullptr;
    }
    if (use == Use::opening) {
        answered.opened = Clock::now();
    }
    answered.menu.isAnswer = answered.outcome == Entry::Outcome::made;
    answered.handedOut = answered.menu.isAnswer ? Entry::HandedOut::menu : Entry::HandedOut::note;
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
    entry.asked = Clock::now();
    entry.wasWrong = std::exchange(entry.isWrong, false);
}

void MenuCache::waitFor(std::uint32_t request, Clock::time_point deadline) {
    const auto isAnswered = [&] {
        return std::none_of(entries_.begin(), entries_.end(),
                            [&](const Entry& entry) { return entry.request == request; });
    };
    isWaiting_ = true;
    while (!isAnswered() && client_.isUp()) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{client_.fd(), POLLIN, 0};
        if (left <= 0 || poll(&entry, 1, static_cast<int>(left)) == 0) {
            break;
        }
        client_.dispatch();
    }
    isWaiting_ = false;
}

void MenuCache::click(std::uint32_t number, std::uint32_t item) {
    client_.send(link::Click{client_.nextRequest(), number, item});
    // What it does changes what menus offer; and the menu that it was made in is closed.
    for (Entry& entry : entries_) {
        entry.isWrong = true;
        entry.opened = {};
    }
}

void MenuCache::linkUp() {
    changed_();
}

void MenuCache::linkDown() {
    // The menus of an earlier connection cannot be clicked in any more.
    entries_.clear();
    changed_();
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
    entry.wasWrong = false;
    if (reply.outcome == link::MenuOutcome::superseded) {
        return;
    }
    using Outcome = Entry::Outcome;
    const Outcome outcome = reply.outcome == link::MenuOutcome::made          ? Outcome::made
                            : reply.outcome == link::MenuOutcome::notOnVolume ? Outcome::outside
                                                                              : Outcome::failed;
    if (outcome == Outcome::failed && entry.outcome == Outcome::made) {
        return; // the last known menu is better than none
    }
    const bool isOther =
        entry.handedOut == Entry::HandedOut::nothing ||
        (entry.handedOut == Entry::HandedOut::note) != (outcome == Outcome::failed) ||
        entry.menu.entries != reply.entries;
    ++answers_;
    if (!isOther && outcome == entry.outcome && answers_ - entry.answer < kKeptMenus) {
        return; // by another number, a click in what is shown would not find its entry
    }
    entry.answer = answers_;
    entry.outcome = outcome;
    entry.menu = outcome == Outcome::made ? KnownMenu{reply.menu, reply.title, reply.entries, true}
                                          : KnownMenu{0, {}, {}, false};
    if (!isWaiting_) {
        changed_();
    }
}

void MenuCache::received(const link::HostStateChange& /*change*/) {
    bool isAwaited = false;
    for (Entry& entry : entries_) {
        entry.answered = {};
        isAwaited = isAwaited || entry.handedOut != Entry::HandedOut::menu;
    }
    if (isAwaited && !isWaiting_) {
        changed_();
    }
}

void MenuCache::received(const link::Badges& badges) {
    std::unordered_set<std::string_view> names;
    for (const link::ItemBadge& item : badges.items) {
        if (!item.isAnswer) {
            names.insert(item.name);
        }
    }
    const auto isAmongThem = [&](const link::SelectedItem& item) {
        const std::size_t slash = badges.folder.size();
        return item.path.size() > slash && item.path[slash] == '/' &&
               item.path.starts_with(badges.folder) &&
               names.contains(std::string_view(item.path).substr(slash + 1));
    };
    for (Entry& entry : entries_) {
        entry.isWrong = entry.isWrong || std::ranges::any_of(entry.selection.items, isAmongThem);
    }
}

} // namespace corvid::gtk
