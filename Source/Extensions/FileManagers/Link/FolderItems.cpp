#include "Extensions/FileManagers/Link/FolderItems.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace corvid::link {

FolderItems::Node* FolderItems::find(const std::string& name) {
    const auto found = items_.find(name);
    return found != items_.end() ? &*found : nullptr;
}

FolderItems::Node& FolderItems::add(const std::string& name) {
    return *items_.try_emplace(name).first;
}

bool FolderItems::forgetOne() {
    // From this news on somebody has not been told.
    std::uint64_t untold = std::numeric_limits<std::uint64_t>::max();
    for (const Reader* const reader : readers_) {
        if (reader->next != nullptr) {
            untold = std::min(untold, reader->next->second.noted);
        }
    }
    while (oldest_ != nullptr && oldest_->second.noted < untold) {
        Node& node = *oldest_;
        unlink(node);
        if (node.second.state == Item::State::idle) {
            items_.erase(items_.find(node.first));
            return true;
        }
        // One that is being asked about comes back to the list with its answer; until then it is
        // not in the way of those behind it.
        node.second.wasUnlinked = true;
    }
    return false;
}

bool FolderItems::isUnwanted(const Node& node) const {
    const Item& item = node.second;
    return item.noted == 0 && !item.wasUnlinked &&
           std::ranges::none_of(item.askers, [this](const Item::Asker& asker) {
               return asker.isOpen && isReader(asker.reader);
           });
}

void FolderItems::clear() {
    items_.clear();
    oldest_ = nullptr;
    newest_ = nullptr;
}

void FolderItems::addReader(Reader& reader) {
    reader.id = ++lastReader_;
    reader.told = 0;
    reader.joined = lastNews_;
    reader.next = oldest_;
    readers_.push_back(&reader);
}

void FolderItems::removeReader(Reader& reader) {
    // Where it asked is not looked for: nobody else ever has its number.
    std::erase(readers_, &reader);
}

void FolderItems::addAsker(Node& node, const Reader& reader) {
    std::vector<Item::Asker>& askers = node.second.askers;
    const auto asker = std::ranges::find(askers, reader.id, &Item::Asker::reader);
    if (asker != askers.end()) {
        asker->isOpen = true;
        return;
    }
    if (askers.size() >= readers_.size()) {
        std::erase_if(askers, [this](const Item::Asker& one) { return !isReader(one.reader); });
    }
    askers.push_back({reader.id, true, false});
}

void FolderItems::noteAnswer(Node& node) {
    for (Item::Asker& asker : node.second.askers) {
        asker.isAnswered = asker.isAnswered || asker.isOpen;
        asker.isOpen = false;
    }
    note(node, false);
}

void FolderItems::note(Node& node, bool isForAll) {
    Item& item = node.second;
    // What a reader was to be told already must not get lost as the item moves to the end.
    const bool wasUntold =
        item.changed != 0 && std::ranges::any_of(readers_, [&](const Reader* reader) {
            return reader->next != nullptr && reader->next->second.noted <= item.noted;
        });
    isForAll = isForAll || wasUntold || item.wasUnlinked;
    item.wasUnlinked = false;
    if (item.noted != 0) {
        for (Reader* const reader : readers_) {
            if (reader->next == &node) {
                reader->next = item.newer;
            }
        }
        unlink(node);
    }
    item.noted = ++lastNews_;
    if (isForAll) {
        item.changed = item.noted;
    }
    item.older = newest_;
    (newest_ != nullptr ? newest_->second.newer : oldest_) = &node;
    newest_ = &node;
    for (Reader* const reader : readers_) {
        if (reader->next == nullptr) {
            reader->next = &node;
        }
    }
}

void FolderItems::unlink(Node& node) {
    Item& item = node.second;
    (item.older != nullptr ? item.older->second.newer : oldest_) = item.newer;
    (item.newer != nullptr ? item.newer->second.older : newest_) = item.older;
    item.older = nullptr;
    item.newer = nullptr;
    item.noted = 0;
}

bool FolderItems::isReader(std::uint64_t id) const {
    return std::ranges::any_of(readers_, [id](const Reader* reader) { return reader->id == id; });
}

void FolderItems::takeNews(Reader& reader, std::vector<ItemBadge>& badges) {
    while (reader.next != nullptr && badges.size() < kMaxBatchSize) {
        const Node& node = *reader.next;
        Item& item = reader.next->second;
        const bool isAnswer = takeAnswer(item, reader);
        const bool isNew =
            reader.told < item.changed || (item.noted <= reader.joined && !item.badge.empty());
        if (isAnswer || isNew) {
            badges.push_back({node.first, item.badge, isAnswer});
        }
        reader.told = item.noted;
        reader.next = item.newer;
    }
}

bool FolderItems::takeAnswer(Item& item, const Reader& reader) {
    const auto asker = std::ranges::find(item.askers, reader.id, &Item::Asker::reader);
    if (asker == item.askers.end() || !asker->isAnswered) {
        return false;
    }
    asker->isAnswered = false;
    if (!asker->isOpen) {
        item.askers.erase(asker);
        if (item.askers.empty()) {
            item.askers.shrink_to_fit();
        }
    }
    return true;
}

} // namespace corvid::link
