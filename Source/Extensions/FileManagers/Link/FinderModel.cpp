#include "Extensions/FileManagers/Link/FinderModel.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace corvid::link {

namespace {

/// Folders that are looked at for an item to forget, so that a new one takes bounded time.
constexpr std::size_t kMaxFoldersLookedAt = 64;

} // namespace

std::string FinderModel::Question::path() const {
    return folder + "/" + item.name;
}

void FinderModel::enter(Queue& queue, Place& place, Entry& entry) {
    if (!place) {
        place = queue.insert(queue.end(), &entry);
    }
}

void FinderModel::leave(Queue& queue, Place& place) {
    if (place) {
        queue.erase(*place);
        place.reset();
    }
}

bool FinderModel::begin(Connection connection, const std::string& folderName) {
    const auto known = folders_.find(folderName);
    if (known != folders_.end()) {
        const auto viewer = known->second.viewers.find(connection);
        if (viewer != known->second.viewers.end()) {
            ++viewer->second.count;
            return true;
        }
    }
    Front& front = fronts_[connection];
    if (front.shown.size() >= kMaxFoldersShown) {
        return false;
    }
    Entry& entry = known != folders_.end() ? *known : *folders_.try_emplace(folderName).first;
    Folder& folder = entry.second;
    enter(all_, folder.amongAll, entry);
    if (folder.viewers.empty()) {
        ++shownCount_;
    }
    Viewer& viewer = folder.viewers[connection];
    viewer.count = 1;
    enter(front.shown, viewer.amongShown, entry);
    folder.items.addReader(viewer.reader);
    if (folder.items.mayHaveNews(viewer.reader)) {
        enter(front.news, viewer.amongNews, entry);
    }
    settle(entry);
    return true;
}

void FinderModel::end(Connection connection, const std::string& folderName) {
    const auto folder = folders_.find(folderName);
    if (folder == folders_.end()) {
        return;
    }
    const auto viewer = folder->second.viewers.find(connection);
    if (viewer != folder->second.viewers.end() && --viewer->second.count == 0) {
        removeViewer(*folder, connection);
    }
}

void FinderModel::disconnect(Connection connection) {
    for (auto front = fronts_.find(connection); front != fronts_.end();
         front = fronts_.find(connection)) {
        removeViewer(*front->second.shown.front(), connection);
    }
}

void FinderModel::endAll() {
    while (!fronts_.empty()) {
        disconnect(fronts_.begin()->first);
    }
}

/// May forget the folder.
void FinderModel::removeViewer(Entry& entry, Connection connection) {
    Folder& folder = entry.second;
    const auto viewer = folder.viewers.find(connection);
    const auto front = fronts_.find(connection);
    folder.items.removeReader(viewer->second.reader);
    leave(front->second.news, viewer->second.amongNews);
    leave(front->second.shown, viewer->second.amongShown);
    if (front->second.shown.empty()) {
        fronts_.erase(front);
    }
    folder.viewers.erase(viewer);
    if (folder.viewers.empty()) {
        // What nobody looks at is neither asked for nor remembered.
        --shownCount_;
        itemCount_ -= folder.items.size();
        waitingCount_ -= folder.waiting.size();
        folder.items.clear();
        folder.waiting.clear();
        leave(turns_, folder.amongTurns);
        settle(entry);
        return;
    }
    // Whoever still shows the folder must not wait behind questions that nobody asks any more.
    std::erase_if(folder.waiting, [&](FolderItems::Node* node) {
        const bool isUnwanted = folder.items.isUnwanted(*node);
        if (isUnwanted) {
            folder.items.forget(*node);
            --waitingCount_;
            --itemCount_;
        }
        return isUnwanted;
    });
    if (folder.waiting.empty()) {
        leave(turns_, folder.amongTurns);
    }
}

/// Has the folder's begin or end told if it has to be, and forgets the folder if nothing is left of
/// it.
void FinderModel::settle(Entry& entry) {
    Folder& folder = entry.second;
    const bool isShown = !folder.viewers.empty();
    if (folder.told == Told::telling) {
        return;
    }
    if (isShown != (folder.told == Told::begun)) {
        enter(observations_, folder.amongObservations, entry);
        return;
    }
    leave(observations_, folder.amongObservations);
    if (!isShown) {
        forget(entry);
    }
}

void FinderModel::forget(Entry& entry) {
    leave(all_, entry.second.amongAll);
    folders_.erase(folders_.find(entry.first));
}

std::vector<std::string> FinderModel::ask(Connection connection, const std::string& folderName,
                                          std::vector<AskedItem> items) {
    std::vector<std::string> refused;
    const auto found = folders_.find(folderName);
    const auto viewer = found != folders_.end() ? found->second.viewers.find(connection)
                                                : std::map<Connection, Viewer>::iterator();
    const bool isShown = found != folders_.end() && viewer != found->second.viewers.end();
    for (AskedItem& asked : items) {
        FolderItems::Node* const node = isShown ? itemOf(*found, asked.name) : nullptr;
        if (node == nullptr) {
            refused.push_back(std::move(asked.name));
            continue;
        }
        node->second.isFolder = asked.isFolder;
        node->second.wasAsked = true;
        found->second.items.addAsker(*node, viewer->second.reader);
        queueQuestion(*found, *node);
    }
    return refused;
}

/// What is remembered of an item, which may be new; null when there is no room for it.
FolderItems::Node* FinderModel::itemOf(Entry& entry, const std::string& name) {
    FolderItems& items = entry.second.items;
    if (FolderItems::Node* const known = items.find(name)) {
        return known;
    }
    if (items.size() >= bounds_.itemsOfFolder) {
        if (!items.forgetOne()) {
            return nullptr;
        }
        --itemCount_;
    } else if (itemCount_ >= bounds_.itemsInAll && !forgetItem(entry)) {
        return nullptr;
    }
    ++itemCount_;
    return &items.add(name);
}

/// Forgets an item of this folder, else of another one.
bool FinderModel::forgetItem(Entry& entry) {
    bool hasForgotten = entry.second.items.forgetOne();
    for (std::size_t i = 0; !hasForgotten && i < std::min(all_.size(), kMaxFoldersLookedAt); ++i) {
        hasForgotten = all_.front()->second.items.forgetOne();
        if (!hasForgotten) {
            // The next search begins where this one ends.
            all_.splice(all_.end(), all_, all_.begin());
        }
    }
    if (hasForgotten) {
        --itemCount_;
    }
    return hasForgotten;
}

std::optional<FinderModel::Observation> FinderModel::nextObservation() {
    if (!mayHandOut(!observations_.empty())) {
        return std::nullopt;
    }
    auto& [name, folder] = *observations_.front();
    leave(observations_, folder.amongObservations);
    folder.told = Told::telling;
    mayTry_ = false;
    return Observation{name, !folder.viewers.empty()};
}

void FinderModel::finish(const Observation& observation, SendOutcome outcome) {
    const auto found = folders_.find(observation.folder);
    if (found != folders_.end() && found->second.told == Told::telling) {
        // With no host there is nobody to tell; its coming begins the shown folders anew.
        const bool wasTold = outcome != SendOutcome::failed;
        found->second.told = observation.isBegin == wasTold ? Told::begun : Told::ended;
        takeTurns(*found);
        settle(*found);
    }
    noteOutcome(outcome);
}

void FinderModel::queueQuestion(Entry& entry, FolderItems::Node& node) {
    using State = FolderItems::Item::State;
    switch (node.second.state) {
    case State::waiting:
        return;
    case State::asking:
        node.second.mustAskAgain = true;
        return;
    case State::idle:
        node.second.state = State::waiting;
        entry.second.waiting.push_back(&node);
        ++waitingCount_;
        takeTurns(entry);
        return;
    }
}

void FinderModel::takeTurns(Entry& entry) {
    if (entry.second.told == Told::begun && !entry.second.waiting.empty()) {
        enter(turns_, entry.second.amongTurns, entry);
    }
}

std::optional<FinderModel::Question> FinderModel::nextQuestion() {
    if (!mayHandOut(!turns_.empty())) {
        return std::nullopt;
    }
    auto& [folderName, folder] = *turns_.front();
    auto& [name, item] = *folder.waiting.front();
    folder.waiting.pop_front();
    --waitingCount_;
    if (folder.waiting.empty()) {
        leave(turns_, folder.amongTurns);
    } else {
        turns_.splice(turns_.end(), turns_, turns_.begin());
    }
    item.state = FolderItems::Item::State::asking;
    mayTry_ = false;
    return Question{folderName, {name, item.isFolder}};
}

void FinderModel::finish(const Question& question, SendOutcome outcome) {
    const auto found = folders_.find(question.folder);
    FolderItems::Node* const node =
        found != folders_.end() ? found->second.items.find(question.item.name) : nullptr;
    // The folder may have gone and come back meanwhile: then the item waits afresh.
    if (node != nullptr && node->second.state == FolderItems::Item::State::asking) {
        FolderItems::Item& item = node->second;
        item.state = FolderItems::Item::State::idle;
        item.hasFailed = outcome == SendOutcome::failed;
        item.isSecondTry = false;
        found->second.items.noteAnswer(*node);
        spreadNews(*found);
        if (std::exchange(item.mustAskAgain, false)) {
            queueQuestion(*found, *node);
            item.isSecondTry = true;
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
    const auto found = folders_.find(std::string(path.substr(0, slash)));
    if (found == folders_.end() || found->second.viewers.empty()) {
        return;
    }
    const std::string name(path.substr(slash + 1));
    FolderItems& items = found->second.items;
    // Of an item of which nothing is known, "no badge" is no news.
    FolderItems::Node* const node = badge.empty() ? items.find(name) : itemOf(*found, name);
    if (node == nullptr) {
        return;
    }
    FolderItems::Item& item = node->second;
    const bool isAnswer = question != nullptr && question->path() == path;
    if (!isAnswer && item.state == FolderItems::Item::State::asking && !item.isSecondTry) {
        // The host said two things at once, and which it said last cannot be seen here.
        item.mustAskAgain = true;
    }
    if (item.badge != badge) {
        item.badge = badge;
        items.noteChange(*node);
        spreadNews(*found);
    }
}

void FinderModel::spreadNews(Entry& entry) {
    for (auto& [connection, viewer] : entry.second.viewers) {
        if (!viewer.amongNews) {
            enter(fronts_[connection].news, viewer.amongNews, entry);
        }
    }
}

std::optional<Badges> FinderModel::takeNews(Connection connection) {
    const auto front = fronts_.find(connection);
    if (front == fronts_.end()) {
        return std::nullopt;
    }
    Queue& news = front->second.news;
    while (!news.empty()) {
        auto& [name, folder] = *news.front();
        Viewer& viewer = folder.viewers.find(connection)->second;
        Badges badges;
        folder.items.takeNews(viewer.reader, badges.items);
        if (!folder.items.mayHaveNews(viewer.reader)) {
            leave(news, viewer.amongNews);
        }
        if (!badges.items.empty()) {
            badges.folder = name;
            return badges;
        }
    }
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
    for (auto next = folders_.begin(); next != folders_.end();) {
        Entry& entry = *next++;
        entry.second.told = Told::ended;
        leave(turns_, entry.second.amongTurns);
        settle(entry);
    }
    askEverythingAgain();
}

void FinderModel::hostVanished() {
    isTroubled_ = false;
    askEverythingAgain();
}

void FinderModel::askEverythingAgain() {
    for (Entry& entry : folders_) {
        for (FolderItems::Node& node : entry.second.items) {
            if (node.second.wasAsked) {
                queueQuestion(entry, node);
            }
        }
    }
}

void FinderModel::askFailedAgain(std::size_t atMost) {
    for (Entry& entry : folders_) {
        for (FolderItems::Node& node : entry.second.items) {
            if (atMost == 0) {
                return;
            }
            if (node.second.hasFailed && node.second.state == FolderItems::Item::State::idle) {
                queueQuestion(entry, node);
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

bool FinderModel::mayHandOut(bool hasWork) const {
    return hasWork && (!isTroubled_ || mayTry_);
}

} // namespace corvid::link
