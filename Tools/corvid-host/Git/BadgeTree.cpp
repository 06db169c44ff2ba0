#include "Tools/corvid-host/Git/BadgeTree.h"

#include <map>
#include <unordered_set>
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
    std::map<std::string_view, std::unique_ptr<Node>> children; ///< by their own `name`
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
        std::vector<const Node*> nodes;
        std::size_t length = 0;
        for (const Node* node = this; node->parent != nullptr; node = node->parent) {
            nodes.push_back(node);
            length += node->name.size() + 1;
        }
        std::string text;
        text.reserve(length);
        for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) {
            text.append(text.empty() ? "" : "/").append((*node)->name);
        }
        return text;
    }
};

BadgeTree::BadgeTree() : top_(std::make_unique<Node>()) {}

BadgeTree::~BadgeTree() {
    if (top_ != nullptr) {
        forget(std::move(top_));
    }
}

BadgeTree::BadgeTree(BadgeTree&& other) noexcept = default;

void BadgeTree::set(std::string_view path, bool isFolder, const FileState& state) {
    assign(make(path), isFolder, state);
}

void BadgeTree::assign(Node& node, bool isFolder, const FileState& state) {
    if (!isFolder) {
        while (!node.children.empty()) {
            erase(*node.children.begin()->second);
        }
    }
    setKind(node, isFolder);
    node.state = state;
    for (Node* above = &node; above != nullptr && above->generation != generation_;
         above = above->parent) {
        above->generation = generation_;
    }
    update(node);
}

void BadgeTree::remove(std::string_view path) {
    if (Node* node = find(path); node != nullptr && node != top_.get()) {
        erase(*node);
    }
}

void BadgeTree::replace(std::string_view path, const Scan& scan) {
    ++generation_;
    std::vector<Node*> lastOnLevel;
    for (const ScannedItem& item : scan.items) {
        lastOnLevel.resize(item.level);
        Node& node = item.level == 0 ? make(path) : child(*lastOnLevel.back(), item.name);
        assign(node, item.isFolder, item.state);
        lastOnLevel.push_back(&node);
    }
    for (const Scan::Deleted& file : scan.deleted) {
        set(file.path, false, file.state);
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

BadgeTree::Changes BadgeTree::takeChanges(const std::set<std::string>& shownFolders) {
    std::unordered_set<const Node*> shown;
    for (const std::string& folder : shownFolders) {
        if (const Node* node = find(folder)) {
            shown.insert(node);
        }
    }
    Changes changes;
    for (const auto& [node, before] : before_) {
        if (node->badge == before || !node->state.isOnDisk || node == top_.get()) {
            continue;
        }
        ++changes.count;
        if (shown.contains(node->parent)) {
            changes.shown.push_back({node->path(), node->badge});
        }
        if (!changes.example) {
            changes.example = Change{node->path(), node->badge};
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
    const Node* node = find(path);
    if (node == nullptr) {
        return;
    }
    std::string text(path);
    if (!node->isFolder) {
        visit(text, node->state);
        return;
    }
    struct Level {
        decltype(Node::children)::const_iterator next;
        decltype(Node::children)::const_iterator end;
        std::size_t length; ///< of the path of the folder
    };
    std::vector<Level> levels{{node->children.begin(), node->children.end(), text.size()}};
    while (!levels.empty()) {
        Level& level = levels.back();
        text.resize(level.length);
        if (level.next == level.end) {
            levels.pop_back();
            continue;
        }
        const auto& [name, item] = *level.next++;
        text.append(text.empty() ? "" : "/").append(name);
        if (item->isFolder) {
            levels.push_back({item->children.begin(), item->children.end(), text.size()});
        } else {
            visit(text, item->state);
        }
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
        node = &child(*node, takeComponent(path));
    }
    return *node;
}

BadgeTree::Node& BadgeTree::child(Node& parent, std::string_view name) {
    if (const auto found = parent.children.find(name); found != parent.children.end()) {
        return *found->second;
    }
    setKind(parent, true);
    auto child = std::make_unique<Node>();
    child->name = name;
    child->parent = &parent;
    before_.emplace(child.get(), CVMABadgeID::none);
    ++parent.childBadges[CVMABadgeID::none];
    const std::string_view key = child->name;
    return *parent.children.emplace(key, std::move(child)).first->second;
}

void BadgeTree::setKind(Node& node, bool isFolder) {
    if (isFolder != node.isFolder) {
        node.isFolder = isFolder;
        node.state = {};
        fileCount_ = isFolder ? fileCount_ - 1 : fileCount_ + 1;
    }
}

void BadgeTree::erase(Node& node) {
    Node& parent = *node.parent;
    --parent.childBadges[node.counted.value()];
    forget(std::move(parent.children.extract(node.name).mapped()));
    update(parent);
}

void BadgeTree::forget(std::unique_ptr<Node> node) {
    std::vector<std::unique_ptr<Node>> nodes;
    nodes.push_back(std::move(node));
    while (!nodes.empty()) {
        const std::unique_ptr<Node> next = std::move(nodes.back());
        nodes.pop_back();
        fileCount_ -= next->isFolder ? 0U : 1U;
        before_.erase(next.get());
        for (auto& [name, child] : next->children) {
            nodes.push_back(std::move(child));
        }
    }
}

void BadgeTree::sweep(Node& top) {
    std::vector<Node*> nodes{&top};
    while (!nodes.empty()) {
        Node& node = *nodes.back();
        nodes.pop_back();
        for (auto child = node.children.begin(); child != node.children.end();) {
            Node& current = *(child++)->second;
            if (current.generation != generation_) {
                erase(current);
            } else if (current.isFolder) {
                nodes.push_back(&current);
            }
        }
    }
}

void BadgeTree::update(Node& node) {
    for (Node* current = &node; current != nullptr; current = current->parent) {
        const CVMABadgeID badge = current->currentBadge();
        if (badge != current->badge) {
            before_.emplace(current, current->badge);
            current->badge = badge;
        }
        const CVMABadgeID counted = current->state.isIgnored ? CVMABadgeID::none : badge;
        if (counted == current->counted || current->parent == nullptr) {
            return;
        }
        --current->parent->childBadges[current->counted.value()];
        ++current->parent->childBadges[counted.value()];
        current->counted = counted;
    }
}

} // namespace corvid
