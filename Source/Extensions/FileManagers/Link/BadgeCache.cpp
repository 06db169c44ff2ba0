#include "Extensions/FileManagers/Link/BadgeCache.h"

#include <utility>

namespace corvid::link {

BadgeCache::BadgeCache(LinkClient& client, Changed changed)
    : client_(client), changed_(std::move(changed)) {}

void BadgeCache::begin(const std::string& folderName) {
    Folder& folder = folders_[folderName];
    if (++folder.views > 1) {
        return;
    }
    // What was known before may have changed while nobody looked: it is shown, but asked for anew.
    forgetQuestions(folder);
    if (volume_.holds(folderName)) {
        tellBegin(folderName, folder);
    }
}

/// Tells the extension, unless it has been told of as many as it takes.
void BadgeCache::tellBegin(const std::string& name, Folder& folder) {
    if (begun_ < kMaxFoldersShown && isPlainPath(name)) {
        client_.send(Begin{name});
        folder.isBegun = true;
        ++begun_;
    }
}

/// Tells the extension, and begins a folder that had no room before.
void BadgeCache::tellEnd(const std::string& name, Folder& folder) {
    client_.send(End{name});
    folder.isBegun = false;
    if (begun_-- < kMaxFoldersShown) {
        return;
    }
    for (auto& [otherName, other] : folders_) {
        if (other.views > 0 && !other.isBegun && volume_.holds(otherName)) {
            tellBegin(otherName, other);
            for (auto& [item, known] : other.items) {
                gather(other, item, known);
            }
            return;
        }
    }
}

void BadgeCache::end(const std::string& folderName) {
    const auto folder = folders_.find(folderName);
    if (folder == folders_.end() || folder->second.views == 0 || --folder->second.views > 0) {
        return;
    }
    folder->second.lastShown = ++ends_;
    forgetQuestions(folder->second);
    if (folder->second.isBegun) {
        tellEnd(folderName, folder->second);
    }
    dropOldest();
}

bool BadgeCache::isShown(const std::string& folderName) const {
    const auto folder = folders_.find(folderName);
    return folder != folders_.end() && folder->second.views > 0;
}

std::vector<std::string> BadgeCache::shownFolders() const {
    std::vector<std::string> shown;
    for (const auto& [name, folder] : folders_) {
        if (folder.views > 0) {
            shown.push_back(name);
        }
    }
    return shown;
}

std::string_view BadgeCache::known(const std::string& folderName, const std::string& name) const {
    const auto folder = folders_.find(folderName);
    if (folder == folders_.end() || folder->second.views == 0) {
        return {};
    }
    const auto item = folder->second.items.find(name);
    return item != folder->second.items.end() ? std::string_view(item->second.badge)
                                              : std::string_view();
}

std::string_view BadgeCache::badge(const std::string& folderName, std::string_view name,
                                   bool isFolder) {
    const auto found = folders_.find(folderName);
    if (found == folders_.end() || found->second.views == 0 ||
        (!volume_.folder.empty() && !volume_.holds(folderName))) {
        return {};
    }
    Folder& folder = found->second;
    const std::string key(name);
    auto known = folder.items.find(key);
    if (known == folder.items.end()) {
        // A question with a name that the link does not carry would not be sent as a whole.
        if (items_ >= kMaxItems || !isPlainName(name)) {
            return {};
        }
        known = folder.items.try_emplace(key).first;
        ++items_;
    }
    Item& item = known->second;
    item.isFolder = isFolder;
    // Of a volume that is not known yet it is asked as soon as it is.
    if (item.state == Item::State::unknown && (folder.isBegun || volume_.folder.empty())) {
        gather(folder, key, item);
    }
    return item.badge;
}

std::string_view BadgeCache::refresh(const std::string& folderName, std::string_view name,
                                     bool isFolder) {
    if (const auto folder = folders_.find(folderName); folder != folders_.end()) {
        const auto item = folder->second.items.find(std::string(name));
        if (item != folder->second.items.end() && item->second.state == Item::State::answered) {
            item->second.state = Item::State::unknown;
        }
    }
    return badge(folderName, name, isFolder);
}

void BadgeCache::gather(Folder& folder, const std::string& name, Item& item) {
    item.state = Item::State::gathered;
    folder.gathered.push_back(name);
    ++unanswered_;
    if (!std::exchange(isWaking_, true)) {
        client_.wake();
    }
}

void BadgeCache::woken() {
    isWaking_ = false;
    if (!client_.isUp() || volume_.folder.empty()) {
        return;
    }
    for (auto& [folderName, folder] : folders_) {
        Ask ask;
        ask.folder = folderName;
        for (std::string& name : std::exchange(folder.gathered, {})) {
            const auto item = folder.items.find(name);
            if (item == folder.items.end() || item->second.state != Item::State::gathered) {
                continue;
            }
            item->second.state = Item::State::asked;
            ask.items.push_back({std::move(name), item->second.isFolder});
            if (ask.items.size() == kMaxBatchSize) {
                client_.send(ask);
                ask.items.clear();
            }
        }
        if (!ask.items.empty()) {
            client_.send(ask);
        }
    }
}

/// Whatever was asked for in `folder` is open again.
void BadgeCache::forgetQuestions(Folder& folder) {
    for (auto& [name, item] : folder.items) {
        if (item.state == Item::State::gathered || item.state == Item::State::asked) {
            --unanswered_;
        }
        item.state = Item::State::unknown;
    }
    folder.gathered.clear();
}

void BadgeCache::linkUp() {
    // Until the new extension has said where the volume is, nothing is begun.
    volume_ = {};
}

void BadgeCache::received(const Volume& volume) {
    volume_ = volume;
    begun_ = 0;
    for (auto& [folderName, folder] : folders_) {
        forgetQuestions(folder);
        folder.isBegun = false;
        if (!volume_.holds(folderName)) {
            if (folder.views == 0) {
                items_ -= folder.items.size();
                folder.items.clear();
                continue;
            }
            // They are asked for again should the volume hold them again.
            std::vector<std::string> names;
            for (auto& [name, item] : folder.items) {
                if (!std::exchange(item.badge, {}).empty()) {
                    names.push_back(name);
                }
            }
            if (!names.empty()) {
                changed_(folderName, names, Change::otherBadge);
            }
        } else if (folder.views > 0) {
            tellBegin(folderName, folder);
            for (auto& [name, item] : folder.items) {
                if (folder.isBegun) {
                    gather(folder, name, item);
                }
            }
        }
    }
}

void BadgeCache::received(const Badges& badges) {
    const auto found = folders_.find(badges.folder);
    if (found == folders_.end() || found->second.views == 0) {
        return;
    }
    Folder& folder = found->second;
    std::vector<std::string> first;
    std::vector<std::string> other;
    for (const ItemBadge& news : badges.items) {
        auto known = folder.items.find(news.name);
        if (known == folder.items.end()) {
            // Should the item be drawn, it is asked for then.
            if (folder.items.size() >= kMaxItemsPushed || items_ >= kMaxItems) {
                continue;
            }
            known = folder.items.try_emplace(news.name).first;
            ++items_;
        }
        Item& item = known->second;
        if (news.isAnswer && item.state == Item::State::asked) {
            item.state = Item::State::answered;
            --unanswered_;
        }
        if (item.badge != news.badge) {
            (item.badge.empty() ? first : other).push_back(news.name);
            item.badge = news.badge;
        }
    }
    if (!first.empty()) {
        changed_(badges.folder, first, Change::firstBadge);
    }
    if (!other.empty()) {
        changed_(badges.folder, other, Change::otherBadge);
    }
}

void BadgeCache::dropOldest() {
    while (true) {
        std::size_t kept = 0;
        std::size_t items = 0;
        auto oldest = folders_.end();
        for (auto folder = folders_.begin(); folder != folders_.end(); ++folder) {
            if (folder->second.views > 0) {
                continue;
            }
            ++kept;
            items += folder->second.items.size();
            if (oldest == folders_.end() || folder->second.lastShown < oldest->second.lastShown) {
                oldest = folder;
            }
        }
        if (kept <= kMaxFoldersKept && items <= kMaxItemsKept) {
            return;
        }
        items_ -= oldest->second.items.size();
        folders_.erase(oldest);
    }
}

} // namespace corvid::link
