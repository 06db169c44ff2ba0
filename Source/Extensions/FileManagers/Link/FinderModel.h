#pragma once

#include "Extensions/FileManagers/Link/FolderItems.h"
#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace corvid::link {

/// What became of the message that the extension sent to its host during one callback.
enum class SendOutcome : std::uint8_t {
    nothingSent, ///< the extension did not need the host
    arrived,
    hostAbsent, ///< nobody serves the host's port
    failed,     ///< the port is there, but the send failed or was not answered in time
};

/// What a file manager knows of the folders that it shows: who shows them, what the extension has
/// been told of that, which badges are wanted and which each item last got.
///
/// Pure bookkeeping, without a clock, a thread or a socket; paths are those of the volume. The
/// caller guards it, does what nextObservation() and nextQuestion() say, and reports back.
class FinderModel {
public:
    /// A front end's connection, as the caller numbers it.
    using Connection = std::uint32_t;

    /// Items that one folder remembers, and all folders together. Beyond it those are forgotten
    /// that nobody waits for, the ones longest without news first. When there is none, a new item
    /// is not asked about, and a push to an item that is not remembered is dropped.
    static constexpr std::size_t kMaxItemsRemembered = 200'000;
    static constexpr std::size_t kMaxItemsInAll = 1'000'000;
    struct Bounds {
        std::size_t itemsOfFolder = kMaxItemsRemembered;
        std::size_t itemsInAll = kMaxItemsInAll;
    };

    FinderModel() = default;
    /// With other bounds, for tests.
    explicit FinderModel(const Bounds& bounds) : bounds_(bounds) {}

    // What front ends do.

    /// `folder` came into view. False, and nothing happens, when the connection shows
    /// kMaxFoldersShown others.
    bool begin(Connection connection, const std::string& folder);
    /// It went. Nothing happens without an earlier begin of the same connection.
    void end(Connection connection, const std::string& folder);
    /// The connection is gone, and with it all that it showed.
    void disconnect(Connection connection);
    /// Every connection's folders are gone: the volume is another one.
    void endAll();
    /// Wants the badges of items in `folder`. The names of those that are not asked about: all when
    /// the connection does not show the folder, and those for which there is no room.
    std::vector<std::string> ask(Connection connection, const std::string& folder,
                                 std::vector<AskedItem> items);

    // What the extension is to be told. The two kinds may be in work at the same time.

    struct Observation {
        std::string folder;
        bool isBegin = false;
    };
    /// The next begin or end, oldest first. A begin and its end that both still wait cancel each
    /// other and take no memory; no other is ever dropped, so the ends that wait are at most as
    /// many as the folders that were shown at a time. The caller tells the extension and calls
    /// finish().
    std::optional<Observation> nextObservation();
    void finish(const Observation& observation, SendOutcome outcome);

    struct Question {
        std::string folder;
        AskedItem item;
        std::string path() const;
    };
    /// The next item whose badge the extension is to be asked for, folders taking turns; only
    /// folders whose begin was told. The caller asks, passes on what is set, and calls finish().
    std::optional<Question> nextQuestion();
    void finish(const Question& question, SendOutcome outcome);

    /// What came of another message, such as one for a menu.
    void noteOutcome(SendOutcome outcome);

    // What the extension does.

    /// The badge of an item, empty for none: the answer to `question`, or a push (null).
    /// Forgotten when nobody shows the item's folder.
    void setBadge(std::string_view path, std::string_view badge, const Question* question);

    // What front ends are to be told.

    /// News for `connection`: at most kMaxBatchSize badges of one folder. Nothing when there are
    /// none. What changed twice since the last call is told once.
    std::optional<Badges> takeNews(Connection connection);

    // Recovery.

    /// The host's port came: shown folders are begun again and their badges asked for again.
    void hostAppeared();
    /// The host's port went: badges are asked for once, so that the fallback shows.
    void hostVanished();
    /// A message failed although the host is there, and something waits to be tried again. Then
    /// nothing is handed out but one try after each retry(), until one arrives.
    bool isRetrying() const { return isTroubled_; }
    /// Allows one try. For a timer, once a second while isRetrying().
    void retry();

    std::size_t shownFolders() const { return shownCount_; }
    std::size_t waitingQuestions() const { return waitingCount_; }
    /// Folders of which anything is remembered: those shown, and those whose end is to be told.
    std::size_t rememberedFolders() const { return folders_.size(); }
    std::size_t rememberedItems() const { return itemCount_; }

private:
    struct Folder;
    using Entry = std::pair<const std::string, Folder>;
    /// Folders in order; a folder that is in one knows its place.
    using Queue = std::list<Entry*>;
    using Place = std::optional<Queue::iterator>;

    struct Viewer {
        std::size_t count = 0;
        FolderItems::Reader reader;
        Place amongShown;
        Place amongNews;
    };
    enum class Told : std::uint8_t { ended, telling, begun };
    struct Folder {
        std::map<Connection, Viewer> viewers;
        FolderItems items;
        std::deque<FolderItems::Node*> waiting;
        Told told = Told::ended;
        Place amongAll;
        Place amongObservations;
        Place amongTurns;
    };
    using Folders = std::unordered_map<std::string, Folder>;
    /// What a connection shows, and where it has news.
    struct Front {
        Queue shown;
        Queue news;
    };

    static void enter(Queue& queue, Place& place, Entry& entry);
    static void leave(Queue& queue, Place& place);
    void removeViewer(Entry& entry, Connection connection);
    void settle(Entry& entry);
    void forget(Entry& entry);
    FolderItems::Node* itemOf(Entry& entry, const std::string& name);
    bool forgetItem(Entry& entry);
    void queueQuestion(Entry& entry, FolderItems::Node& node);
    void takeTurns(Entry& entry);
    void spreadNews(Entry& entry);
    void askEverythingAgain();
    void askFailedAgain(std::size_t atMost);
    bool mayHandOut(bool hasWork) const;

    const Bounds bounds_{};
    Folders folders_;
    std::map<Connection, Front> fronts_;
    Queue all_;
    Queue observations_;
    Queue turns_;
    std::size_t shownCount_ = 0;
    std::size_t waitingCount_ = 0;
    std::size_t itemCount_ = 0;
    bool isTroubled_ = false;
    bool mayTry_ = false;
};

} // namespace corvid::link
