#include "Extensions/FileManagers/Link/FinderModel.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace corvid::link {

namespace {

bool contains(const std::vector<FinderModel::Connection>& list, FinderModel::Connection element) {
    return std::find(list.begin(), list.end(), element) != list.end();
}

} // namespace

std::string FinderModel::Question::path() const {
    return folder + "/" + item.name;
}

bool FinderModel::begin(Connection connection, const std::string& folderName) {
    std::size_t& count = shownBy_[connection];
    if (count >= kMaxFoldersShown) {
        return false;
    }
    Folder& folder = folders_[folderName];
    const auto [viewer, isNew] = folder.viewers.try_emplace(connection);
    ++viewer->second.count;
    if (!isNew) {
        return true;
    }
    ++count;
    queueObservation(folderName, folder);
    for (const auto& [name, item] : folder.items) {
        if (!item.badge.empty()) {
            viewer->second.news.try_emplace(name, false);
        }
    }
    if (!viewer->second.news.empty()) {
        newsIn_[connection].push_back(folderName);
    }
    return true;
}

void FinderModel::end(Connection connection, const std::string& folderName) {
    const auto folder = folders_.find(folderName);
    if (folder == folders_.end()) {
        return;
    }
    const auto viewer = folder->second.viewers.find(connection);
    if (viewer != folder->second.viewers.end() && --viewer->second.count == 0) {
        removeViewer(folderName, connection);
    }
}

void FinderModel::disconnect(Connection connection) {
    if (shownBy_.contains(connection)) {
        std::vector<std::string> shown;
        for (const auto& [name, folder] : folders_) {
            if (folder.viewers.contains(connection)) {
                shown.push_back(name);
            }
        }
        for (const std::string& name : shown) {
            removeViewer(name, connection);
        }
    }
    newsIn_.erase(connection);
}

void FinderModel::endAll() {
    while (!shownBy_.empty()) {
        disconnect(shownBy_.begin()->first);
    }
}

void FinderModel::removeViewer(const std::string& folderName, Connection connection) {
    const auto shown = shownBy_.find(connection);
    if (--shown->second == 0) {
        shownBy_.erase(shown);
    }
    Folder& folder = folders_[folderName];
    folder.viewers.erase(connection);
    if (folder.viewers.empty()) {
        // What nobody looks at is neither asked for nor remembered.
        folder.items.clear();
        folder.waiting.clear();
        queueObservation(folderName, folder);
        return;
    }
    for (auto& [name, item] : folder.items) {
        std::erase(item.askers, connection);
    }
}

bool FinderModel::ask(Connection connection, const std::string& folderName,
                      const std::vector<AskedItem>& items) {
    const auto found = folders_.find(folderName);
    if (found == folders_.end() || !found->second.viewers.contains(connection)) {
        return false;
    }
    Folder& folder = found->second;
    if (folder.items.size() + items.size() > kMaxItemsRemembered) {
        forgetIdle(folder);
    }
    for (const AskedItem& asked : items) {
        Item& item = folder.items[asked.name];
        item.isFolder = asked.isFolder;
        item.wasAsked = true;
        if (!contains(item.askers, connection)) {
            item.askers.push_back(connection);
        }
        queueQuestion(folderName, folder, asked.name, item);
    }
    return true;
}

void FinderModel::queueObservation(const std::string& name, Folder& folder) {
    if (!folder.isInObservations && folder.told != Told::telling) {
        folder.isInObservations = true;
        observations_.push_back(name);
    }
}

std::optional<FinderModel::Observation> FinderModel::nextObservation() {
    if (!mayHandOut(!observations_.empty())) {
        return std::nullopt;
    }
    while (!observations_.empty()) {
        const std::string name = std::move(observations_.front());
        observations_.pop_front();
        const auto found = folders_.find(name);
        if (found == folders_.end()) {
            continue;
        }
        Folder& folder = found->second;
        folder.isInObservations = false;
        const bool isShown = !folder.viewers.empty();
        if (isShown == (folder.told == Told::begun)) {
            if (!isShown) {
                folders_.erase(found);
            }
            continue;
        }
        folder.told = Told::telling;
        mayTry_ = false;
        return Observation{name, isShown};
    }
    return std::nullopt;
}

void FinderModel::finish(const Observation& observation, SendOutcome outcome) {
    const auto found = folders_.find(observation.folder);
    if (found != folders_.end() && found->second.told == Told::telling) {
        Folder& folder = found->second;
        // With no host there is nobody to tell; its coming begins the shown folders anew.
        const bool wasTold = outcome != SendOutcome::failed;
        folder.told = observation.isBegin == wasTold ? Told::begun : Told::ended;
        if (folder.told == Told::begun && !folder.waiting.empty()) {
            takeTurns(observation.folder, folder);
        }
        if (folder.viewers.empty() || folder.told == Told::ended) {
            queueObservation(observation.folder, folder);
        }
    }
    noteOutcome(outcome);
}

void FinderModel::queueQuestion(const std::string& folderName, Folder& folder,
                                const std::string& name, Item& item) {
    switch (item.state) {
    case Item::State::waiting:
        return;
    case Item::State::asking:
        item.mustAskAgain = true;
        return;
    case Item::State::idle:
        item.state = Item::State::waiting;
        folder.waiting.push_back(name);
        takeTurns(folderName, folder);
        return;
    }
}

void FinderModel::takeTurns(const std::string& name, Folder& folder) {
    if (!folder.isInTurns && folder.told == Told::begun) {
        folder.isInTurns = true;
        turns_.push_back(name);
    }
}

std::optional<FinderModel::Question> FinderModel::nextQuestion() {
    if (!mayHandOut(!turns_.empty())) {
        return std::nullopt;
    }
    while (!turns_.empty()) {
        std::string folderName = std::move(turns_.front());
        turns_.pop_front();
        const auto found = folders_.find(folderName);
        if (found == folders_.end()) {
            continue;
        }
        Folder& folder = found->second;
        folder.isInTurns = false;
        if (folder.waiting.empty() || folder.told != Told::begun) {
            continue;
        }
        std::string name = std::move(folder.waiting.front());
        folder.waiting.pop_front();
        if (!folder.waiting.empty()) {
            takeTurns(folderName, folder);
        }
        Item& item = folder.items[name];
        item.state = Item::State::asking;
        mayTry_ = false;
        return Question{std::move(folderName), {std::move(name), item.isFolder}};
    }
    return std::nullopt;
}

void FinderModel::finish(const Question& question, SendOutcome outcome) {
    const auto found = folders_.find(question.folder);
    if (found != folders_.end()) {
        Folder& folder = found->second;
        const auto entry = folder.items.find(question.item.name);
        // The folder may have gone and come back meanwhile: then the item waits afresh.
        if (entry != folder.items.end() && entry->second.state == Item::State::asking) {
            Item& item = entry->second;
            item.state = Item::State::idle;
            item.hasFailed = outcome == SendOutcome::failed;
            item.isSecondTry = false;
            addNews(question.folder, folder, question.item.name, std::exchange(item.askers, {}));
            if (std::exchange(item.mustAskAgain, false)) {
                queueQuestion(question.folder, folder, question.item.name, item);
                item.isSecondTry = true;
            }
        }
    }
    noteOutcome(outcome);
}

void FinderModel::setBadge(std::string_view path, std::string_view badge,
                           const Question* question) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || slash + 1 == path.size()) {
        return;
    }
    const std::string folderName(path.substr(0, slash));
    const auto found = folders_.find(folderName);
    if (found == folders_.end() || found->second.viewers.empty()) {
        return;
    }
    Folder& folder = found->second;
    const std::string name(path.substr(slash + 1));
    if (folder.items.size() >= kMaxItemsRemembered && !folder.items.contains(name)) {
        forgetIdle(folder);
    }
    Item& item = folder.items[name];
    const bool isAnswer = question != nullptr && question->path() == path;
    if (!isAnswer && item.state == Item::State::asking && !item.isSecondTry) {
        // The host said two things at once, and which it said last cannot be seen here.
        item.mustAskAgain = true;
    }
    if (item.badge != badge) {
        item.badge = badge;
        addNews(folderName, folder, name, {});
    }
}

void FinderModel::addNews(const std::string& folderName, Folder& folder, const std::string& name,
                          const std::vector<Connection>& askers) {
    const bool isAnswer = !askers.empty();
    for (auto& [connection, viewer] : folder.viewers) {
        if (isAnswer && !contains(askers, connection)) {
            continue;
        }
        if (viewer.news.empty()) {
            newsIn_[connection].push_back(folderName);
        }
        viewer.news[name] |= isAnswer;
    }
}

std::optional<Badges> FinderModel::takeNews(Connection connection) {
    const auto queue = newsIn_.find(connection);
    if (queue == newsIn_.end()) {
        return std::nullopt;
    }
    while (!queue->second.empty()) {
        Badges badges;
        badges.folder = queue->second.front();
        const auto folder = folders_.find(badges.folder);
        if (folder != folders_.end() && folder->second.viewers.contains(connection)) {
            auto& news = folder->second.viewers[connection].news;
            auto next = news.begin();
            while (next != news.end() && badges.items.size() < kMaxBatchSize) {
                const auto item = folder->second.items.find(next->first);
                if (item != folder->second.items.end()) {
                    badges.items.push_back({next->first, item->second.badge, next->second});
                }
                next = news.erase(next);
            }
            if (!news.empty()) {
                return badges;
            }
        }
        queue->second.pop_front();
        if (!badges.items.empty()) {
            return badges;
        }
    }
    newsIn_.erase(queue);
    return std::nullopt;
}

void FinderModel::noteOutcome(SendOutcome outcome) {
    if (outcome == SendOutcome::failed) {
        isTroubled_ = true;
        mayTry_ = false;
    } else if (outcome != SendOutcome::nothingSent && std::exchange(isTroubled_, false)) {
        askFailedAgain(std::numeric_limits<std::size_t>::max());
    }
}

void FinderModel::hostAppeared() {
    isTroubled_ = false;
    for (auto& [name, folder] : folders_) {
        folder.told = Told::ended;
        queueObservation(name, folder);
    }
    askEverythingAgain();
}

void FinderModel::hostVanished() {
    isTroubled_ = false;
    askEverythingAgain();
}

void FinderModel::askEverythingAgain() {
    for (auto& [folderName, folder] : folders_) {
        for (auto& [name, item] : folder.items) {
            if (item.wasAsked) {
                queueQuestion(folderName, folder, name, item);
            }
        }
    }
}

void FinderModel::askFailedAgain(std::size_t atMost) {
    for (auto& [folderName, folder] : folders_) {
        for (auto& [name, item] : folder.items) {
            if (atMost == 0) {
                return;
            }
            if (item.hasFailed && item.state == Item::State::idle) {
                queueQuestion(folderName, folder, name, item);
                --atMost;
            }
        }
    }
}

void FinderModel::retry() {
    if (!isTroubled_) {
        return;
    }
    if (turns_.empty() && observations_.empty()) {
        askFailedAgain(1);
    }
    mayTry_ = true;
    // With nothing left to try again there is nothing to wait for either.
    isTroubled_ = !turns_.empty() || !observations_.empty();
}

bool FinderModel::mayHandOut(bool hasWork) {
    return hasWork && (!isTroubled_ || mayTry_);
}

void FinderModel::forgetIdle(Folder& folder) {
    std::erase_if(folder.items,
                  [](const auto& entry) { return entry.second.state == Item::State::idle; });
}

std::size_t FinderModel::shownFolders() const {
    return static_cast<std::size_t>(
        std::count_if(folders_.begin(), folders_.end(),
                      [](const auto& entry) { return !entry.second.viewers.empty(); }));
}

std::size_t FinderModel::waitingQuestions() const {
    std::size_t count = 0;
    for (const auto& [name, folder] : folders_) {
        count += folder.waiting.size();
    }
    return count;
}

} // namespace corvid::link
