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
        client_.send(Begin{folderName});
    }
}

void BadgeCache::end(const std::string& folderName) {
    const auto folder = folders_.find(folderName);
    if (folder == folders_.end() || folder->second.views == 0 || --folder->second.views > 0) {
        return;
    }
    folder->second.lastShown = ++ends_;
    forgetQuestions(folder->second);
    if (volume_.holds(folderName)) {
        client_.send(End{folderName});
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
    Item& item = folder.items[key];
    item.isFolder = isFolder;
    if (item.state == Item::State::unknown) {
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
    for (auto& [folderName, folder] : folders_) {
        forgetQuestions(folder);
        if (!volume_.holds(folderName)) {
            if (folder.views == 0) {
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
            client_.send(Begin{folderName});
            for (auto& [name, item] : folder.items) {
                gather(folder, name, item);
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
        Item& item = folder.items[news.name];
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
        folders_.erase(oldest);
    }
}

} // namespace corvid::link
