#include "Tools/corvid-host/Git/BadgeTree.h"

#include <utility>

namespace corvid {

namespace {

constexpr std::size_t kBadgeCount = CVMABadgeID::none + 1;

/// Splits the first component off `path`.
std::string_view takeComponent(std::string_view& path) {
    const std::size_t end = path.find('/');
    const std::string_view component = path.substr(0, end);
    path = end == std::string_view::npos ? std::string_view() : path.substr(end + 1);
    return component;
}

} // namespace

struct BadgeTree::Node {
    std::string name;
    Node* parent = nullptr;
    bool isFolder = true;
    FileState state;
    CVMABadgeID badge = CVMABadgeID::none;
    std::uint64_t generation = 0;
    std::map<std::string, std::unique_ptr<Node>, std::less<>> children;
    CVMABadgeID counted = CVMABadgeID::none; ///< as what the folder above counts it
    std::array<std::size_t, kBadgeCount> childBadges{};

    CVMABadgeID currentBadge() const {
        if (!isFolder || state.isUnreadable) {
            return badgeOf(state);
        }
        CVMABadgeID common = CVMABadgeID::none;
        for (const CVMABadgeID candidate : CVMABadgeID::allValues()) {
            if (childBadges[candidate.value()] == 0) {
                continue;
            }
            if (common != CVMABadgeID::none) {
                return CVMABadgeID::syncedpartial;
            }
            common = candidate;
        }
        return common;
    }

    std::string path() const {
        if (parent == nullptr || parent->parent == nullptr) {
            return name;
        }
        return parent->path() + "/" + name;
    }
};

BadgeTree::BadgeTree() : top_(std::make_unique<Node>()) {}

BadgeTree::~BadgeTree() = default;

BadgeTree::BadgeTree(BadgeTree&& other) noexcept = default;

void BadgeTree::set(const ScannedItem& item) {
    Node& node = make(item.path);
    if (!item.isFolder) {
        while (!node.children.empty()) {
            erase(*node.children.begin()->second);
        }
    }
    setKind(node, item.isFolder);
    node.state = item.state;
    for (Node* above = &node; above != nullptr; above = above->parent) {
        above->generation = generation_;
    }
    update(node);
}

void BadgeTree::remove(std::string_view path) {
    if (Node* node = find(path); node != nullptr && node != top_.get()) {
        erase(*node);
    }
}

void BadgeTree::replace(std::string_view path, const std::vector<ScannedItem>& items) {
    ++generation_;
    for (const ScannedItem& item : items) {
        set(item);
    }
    Node* node = find(path);
    if (node == nullptr) {
        return;
    }
    if (node->generation != generation_ && node != top_.get()) {
        erase(*node);
    } else {
        sweep(*node);
    }
}

std::vector<BadgeTree::Change> BadgeTree::takeChanges() {
    std::vector<Change> changes;
    for (const auto& [node, before] : before_) {
        if (node->badge != before && node->state.isOnDisk && node != top_.get()) {
            changes.push_back({node->path(), node->badge});
        }
    }
    before_.clear();
    return changes;
}

CVMABadgeID BadgeTree::badge(std::string_view path) const {
    const Node* node = find(path);
    return node != nullptr ? node->badge : CVMABadgeID::none;
}

void BadgeTree::forEachFile(
    std::string_view path,
    const std::function<void(const std::string&, const FileState&)>& visit) const {
    if (const Node* node = find(path)) {
        std::string text(path);
        visitFiles(*node, text, visit);
    }
}

void BadgeTree::visitFiles(
    const Node& node, std::string& path,
    const std::function<void(const std::string&, const FileState&)>& visit) const {
    if (!node.isFolder) {
        visit(path, node.state);
        return;
    }
    const std::size_t length = path.size();
    for (const auto& [name, child] : node.children) {
        path.append(length == 0 ? "" : "/").append(name);
        visitFiles(*child, path, visit);
        path.resize(length);
    }
}

BadgeTree::Node* BadgeTree::find(std::string_view path) const {
    Node* node = top_.get();
    while (!path.empty()) {
        const auto found = node->children.find(takeComponent(path));
        if (found == node->children.end()) {
            return nullptr;
        }
        node = found->second.get();
    }
    return node;
}

BadgeTree::Node& BadgeTree::make(std::string_view path) {
    Node* node = top_.get();
    while (!path.empty()) {
        const std::string_view name = takeComponent(path);
        auto found = node->children.find(name);
        if (found == node->children.end()) {
            setKind(*node, true);
            auto child = std::make_unique<Node>();
            child->name = name;
            child->parent = node;
            before_.emplace(child.get(), CVMABadgeID::none);
            ++node->childBadges[CVMABadgeID::none];
            found = node->children.emplace(child->name, std::move(child)).first;
        }
        node = found->second.get();
    }
    return *node;
}

void BadgeTree::setKind(Node& node, bool isFolder) {
    if (isFolder != node.isFolder) {
        node.isFolder = isFolder;
        node.state = {};
        fileCount_ = isFolder ? fileCount_ - 1 : fileCount_ + 1;
    }
}

void BadgeTree::erase(Node& node) {
    while (!node.children.empty()) {
        erase(*node.children.begin()->second);
    }
    fileCount_ -= node.isFolder ? 0 : 1;
    before_.erase(&node);
    Node& parent = *node.parent;
    --parent.childBadges[node.counted.value()];
    parent.children.erase(parent.children.find(node.name));
    update(parent);
}

void BadgeTree::sweep(Node& node) {
    for (auto child = node.children.begin(); child != node.children.end();) {
        Node& current = *(child++)->second;
        if (current.generation != generation_) {
            erase(current);
        } else {
            sweep(current);
        }
    }
}

void BadgeTree::update(Node& node) {
    const CVMABadgeID badge = node.currentBadge();
    if (badge != node.badge) {
        before_.emplace(&node, node.badge);
        node.badge = badge;
    }
    const CVMABadgeID counted = node.state.isIgnored ? CVMABadgeID::none : badge;
    if (counted != node.counted && node.parent != nullptr) {
        --node.parent->childBadges[node.counted.value()];
        ++node.parent->childBadges[counted.value()];
        node.counted = counted;
        update(*node.parent);
    }
}

} // namespace corvid
