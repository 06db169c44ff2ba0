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
        if (reader->next_ != nullptr) {
            untold = std::min(untold, reader->next_->second.noted_);
        }
    }
    while (oldest_ != nullptr && oldest_->second.noted_ < untold) {
        Node& node = *oldest_;
        unlink(node);
        if (node.second.state == Item::State::idle) {
            items_.erase(items_.find(node.first));
            return true;
        }
        // One that is being asked about comes back to the list with its answer; until then it is
        // not in the way of those behind it.
        node.second.wasUnlinked_ = true;
    }
    return false;
}

bool FolderItems::isUnwanted(const Node& node) const {
    const Item& item = node.second;
    return item.noted_ == 0 && !item.wasUnlinked_ &&
           std::ranges::none_of(item.askers_, [this](const Item::Asker& asker) {
               return asker.isOpen && isReader(asker.reader);
           });
}

void FolderItems::clear() {
    items_.clear();
    oldest_ = nullptr;
    newest_ = nullptr;
}

void FolderItems::addReader(Reader& reader) {
    reader.id_ = ++lastReader_;
    reader.told_ = 0;
    reader.joined_ = lastNews_;
    reader.next_ = oldest_;
    readers_.push_back(&reader);
}

void FolderItems::removeReader(Reader& reader) {
    // Where it asked is not looked for: nobody else ever has its number.
    std::erase(readers_, &reader);
}

void FolderItems::addAsker(Node& node, const Reader& reader) {
    std::vector<Item::Asker>& askers = node.second.askers_;
    const auto asker = std::ranges::find(askers, reader.id_, &Item::Asker::reader);
    if (asker != askers.end()) {
        asker->isOpen = true;
        return;
    }
    if (askers.size() >= readers_.size()) {
        std::erase_if(askers, [this](const Item::Asker& one) { return !isReader(one.reader); });
    }
    askers.push_back({reader.id_, true, false});
}

void FolderItems::noteAnswer(Node& node) {
    for (Item::Asker& asker : node.second.askers_) {
        asker.isAnswered = asker.isAnswered || asker.isOpen;
        asker.isOpen = false;
    }
    note(node, false);
}

void FolderItems::note(Node& node, bool isForAll) {
    Item& item = node.second;
    // What a reader was to be told already must not get lost as the item moves to the end.
    const bool wasUntold =
        item.changed_ != 0 && std::ranges::any_of(readers_, [&](const Reader* reader) {
            return reader->next_ != nullptr && reader->next_->second.noted_ <= item.noted_;
        });
    isForAll = isForAll || wasUntold || item.wasUnlinked_;
    item.wasUnlinked_ = false;
    if (item.noted_ != 0) {
        for (Reader* const reader : readers_) {
            if (reader->next_ == &node) {
                reader->next_ = item.newer_;
            }
        }
        unlink(node);
    }
    item.noted_ = ++lastNews_;
    if (isForAll) {
        item.changed_ = item.noted_;
    }
    item.older_ = newest_;
    (newest_ != nullptr ? newest_->second.newer_ : oldest_) = &node;
    newest_ = &node;
    for (Reader* const reader : readers_) {
        if (reader->next_ == nullptr) {
            reader->next_ = &node;
        }
    }
}

void FolderItems::unlink(Node& node) {
    Item& item = node.second;
    (item.older_ != nullptr ? item.older_->second.newer_ : oldest_) = item.newer_;
    (item.newer_ != nullptr ? item.newer_->second.older_ : newest_) = item.older_;
    item.older_ = nullptr;
    item.newer_ = nullptr;
    item.noted_ = 0;
}

bool FolderItems::isReader(std::uint64_t id) const {
    return std::ranges::any_of(readers_, [id](const Reader* reader) { return reader->id_ == id; });
}

void FolderItems::takeNews(Reader& reader, std::vector<ItemBadge>& badges) {
    while (reader.next_ != nullptr && badges.size() < kMaxBatchSize) {
        const Node& node = *reader.next_;
        Item& item = reader.next_->second;
        const bool isAnswer = takeAnswer(item, reader);
        const bool isNew =
            reader.told_ < item.changed_ || (item.noted_ <= reader.joined_ && !item.badge.empty());
        if (isAnswer || isNew) {
            badges.push_back({node.first, item.badge, isAnswer});
        }
        reader.told_ = item.noted_;
        reader.next_ = item.newer_;
    }
}

bool FolderItems::takeAnswer(Item& item, const Reader& reader) {
    const auto asker = std::ranges::find(item.askers_, reader.id_, &Item::Asker::reader);
    if (asker == item.askers_.end() || !asker->isAnswered) {
        return false;
    }
    asker->isAnswered = false;
    if (!asker->isOpen) {
        item.askers_.erase(asker);
        if (item.askers_.empty()) {
            item.askers_.shrink_to_fit();
        }
    }
    return true;
}

} // namespace corvid::link
