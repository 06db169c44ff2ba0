#include "Extensions/FileManagers/Link/ReplyQueue.h"

namespace corvid::link {

namespace {

std::size_t sizeOf(const std::vector<MenuEntry>& entries) {
    std::size_t size = entries.size() * sizeof(MenuEntry);
    for (const MenuEntry& entry : entries) {
        size += entry.title.size() + entry.toolTip.size() + entry.iconName.size() +
                sizeOf(entry.submenu);
    }
    return size;
}

/// Texts of all other kinds are short.
std::size_t sizeOf(const Message& message) {
    std::size_t size = sizeof message;
    if (const auto* const menu = std::get_if<MenuReply>(&message)) {
        size += menu->title.size() + sizeOf(menu->entries);
    } else if (const auto* const badges = std::get_if<Badges>(&message)) {
        size += badges->folder.size() + badges->items.size() * sizeof(ItemBadge);
        for (const ItemBadge& item : badges->items) {
            size += item.name.size() + item.badge.size();
        }
    }
    return size;
}

} // namespace

void ReplyQueue::add(Message message) {
    const std::size_t size = sizeOf(message);
    messages_.emplace_back(std::move(message), size);
    bytes_ += size;
}

void ReplyQueue::replace(const Message& message) {
    std::erase_if(messages_, [&](const auto& older) {
        const bool isOutOfDate = older.first.index() == message.index();
        bytes_ -= isOutOfDate ? older.second : 0;
        return isOutOfDate;
    });
    add(message);
}

std::optional<Message> ReplyQueue::take() {
    if (messages_.empty()) {
        return std::nullopt;
    }
    auto [message, size] = std::move(messages_.front());
    messages_.pop_front();
    bytes_ -= size;
    return message;
}

} // namespace corvid::link
