#pragma once

#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <cstdint>
#include <deque>
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

    /// Folders that one connection may show at a time.
    static constexpr std::size_t kMaxFoldersShown = 1024;
    /// Items that one folder remembers; beyond it what nobody waits for is forgotten.
    static constexpr std::size_t kMaxItemsRemembered = 200'000;

    // What front ends do.

    /// `folder` came into view. False, and nothing happens, when the connection shows too many.
    bool begin(Connection connection, const std::string& folder);
    /// It went. Nothing happens without an earlier begin of the same connection.
    void end(Connection connection, const std::string& folder);
    /// The connection is gone, and with it all that it showed.
    void disconnect(Connection connection);
    /// Every connection's folders are gone: the volume is another one.
    void endAll();
    /// Wants the badges of items in `folder`. False, and nothing happens, when the connection does
    /// not show it.
    bool ask(Connection connection, const std::string& folder, const std::vector<AskedItem>& items);

    // What the extension is to be told. The two kinds may be in work at the same time.

    struct Observation {
        std::string folder;
        bool isBegin = false;
    };
    /// The next begin or end, oldest first; a begin and an end that were both still waiting cancel
    /// out. The caller tells the extension and calls finish().
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

    std::size_t shownFolders() const;
    std::size_t waitingQuestions() const;

private:
    struct Item {
        enum class State : std::uint8_t { idle, waiting, asking };
        std::string badge;
        std::vector<Connection> askers;
        State state = State::idle;
        bool isFolder = false;
        bool wasAsked = false;
        bool hasFailed = false; ///< the last answer was a fallback for a host that did not answer
        bool mustAskAgain = false; ///< something happened during the question
        bool isSecondTry = false;  ///< the question in work repeats one that a push crossed
    };
    struct Viewer {
        std::size_t count = 0;
        std::unordered_map<std::string, bool> news; ///< name to "is an answer"
    };
    enum class Told : std::uint8_t { ended, telling, begun };
    struct Folder {
        std::map<Connection, Viewer> viewers;
        std::unordered_map<std::string, Item> items;
        std::deque<std::string> waiting;
        Told told = Told::ended;
        bool isInObservations = false;
        bool isInTurns = false;
    };
    using Folders = std::unordered_map<std::string, Folder>;

    void removeViewer(const std::string& name, Connection connection);
    void queueObservation(const std::string& name, Folder& folder);
    void queueQuestion(const std::string& folderName, Folder& folder, const std::string& name,
                       Item& item);
    void takeTurns(const std::string& name, Folder& folder);
    void addNews(const std::string& folderName, Folder& folder, const std::string& name,
                 const std::vector<Connection>& askers);
    void askEverythingAgain();
    void askFailedAgain(std::size_t atMost);
    bool mayHandOut(bool hasWork);
    void forgetIdle(Folder& folder);

    Folders folders_;
    std::map<Connection, std::size_t> shownBy_;
    std::map<Connection, std::deque<std::string>> newsIn_;
    std::deque<std::string> observations_;
    std::deque<std::string> turns_;
    bool isTroubled_ = false;
    bool mayTry_ = false;
};

} // namespace corvid::link
