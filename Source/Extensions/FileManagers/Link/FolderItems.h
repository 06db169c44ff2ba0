#pragma once

#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace corvid::link {

/// What is remembered of the items of one folder: the badge that each last got, what is being asked
/// about it, and which readers have been told.
///
/// Items with news stand in one list, the newest last, and each reader has its place in it: news
/// takes the memory of the items, however many readers there are and however long they do not read.
/// Pure bookkeeping; the caller guards it.
class FolderItems {
public:
    struct Item;
    using Node = std::pair<const std::string, Item>;

    /// Who is told of this folder's items. The owner keeps it in its place between addReader() and
    /// removeReader().
    class Reader {
        friend class FolderItems;
        std::uint64_t id_ = 0;
        std::uint64_t joined_ = 0; ///< the number of the newest news when the reader came
        std::uint64_t told_ = 0;   ///< that of the news that the reader was told last
        Node* next_ = nullptr;     ///< the first item that may have news; null for none
    };

    struct Item {
        enum class State : std::uint8_t { idle, waiting, asking };
        std::string badge;
        State state = State::idle;
        bool isFolder = false;
        bool wasAsked = false;
        bool hasFailed = false; ///< the last answer was a fallback for a host that did not answer
        bool mustAskAgain = false; ///< something happened during the question
        bool isSecondTry = false;  ///< the question in work repeats one that a push crossed

    private:
        friend class FolderItems;
        struct Asker {
            std::uint64_t reader = 0;
            bool isOpen = false;     ///< an answer is to come
            bool isAnswered = false; ///< one has come, and the reader is to be told
        };
        bool wasUnlinked_ = false;
        std::vector<Asker> askers_;
        Node* older_ = nullptr;
        Node* newer_ = nullptr;
        std::uint64_t noted_ = 0;   ///< the number of its last news; 0 while it is not in the list
        std::uint64_t changed_ = 0; ///< that of the last news that all readers are told
    };

    std::size_t size() const { return items_.size(); }
    auto begin() { return items_.begin(); }
    auto end() { return items_.end(); }

    /// Null when nothing is known of the item. What a node holds stays in its place until the item
    /// is forgotten.
    Node* find(const std::string& name);
    /// Adds an item that is not there yet. The caller gives it news or a question at once.
    Node& add(const std::string& name);
    /// Forgets the item that is idle and had its last news longest ago, unless somebody has not
    /// been told of it. False when there is none. Takes constant time, a few calls together.
    bool forgetOne();
    /// True when nobody who reads waits for an answer about the item, and nobody was ever told
    /// anything about it.
    bool isUnwanted(const Node& node) const;
    /// Forgets an item that is unwanted.
    void forget(Node& node) { items_.erase(items_.find(node.first)); }
    /// Forgets all. Nobody reads.
    void clear();

    /// A new reader is told every badge that there is.
    void addReader(Reader& reader);
    void removeReader(Reader& reader);

    /// The reader is to be told the answer to the question about this item.
    void addAsker(Node& node, const Reader& reader);
    /// The item's badge is another one: news for all readers.
    void noteChange(Node& node) { note(node, true); }
    /// The item's question was answered: news for those who asked.
    void noteAnswer(Node& node);

    /// Whether takeNews() may have something; it need not.
    bool mayHaveNews(const Reader& reader) const { return reader.next_ != nullptr; }
    /// Moves the reader's news to `badges`, until it holds kMaxBatchSize.
    void takeNews(Reader& reader, std::vector<ItemBadge>& badges);

private:
    void note(Node& node, bool isForAll);
    void unlink(Node& node);
    bool isReader(std::uint64_t id) const;
    static bool takeAnswer(Item& item, const Reader& reader);

    std::unordered_map<std::string, Item> items_;
    std::vector<Reader*> readers_;
    Node* oldest_ = nullptr;
    Node* newest_ = nullptr;
    std::uint64_t lastNews_ = 0;
    std::uint64_t lastReader_ = 0;
};

} // namespace corvid::link
