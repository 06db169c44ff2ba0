#include "Extensions/FileManagers/Link/FinderRole.h"

#include "Core/Base/UTF8.h"
#include "Extensions/FileManagers/Link/SendMonitor.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace corvid::link {

namespace {

/// What the extension is asked on this thread at this moment; null outside of a badge request.
thread_local const FinderModel::Question* questionInWork = nullptr;

std::optional<URL> itemURL(const std::string& path, bool isFolder) {
    return URL::fileURL(path, isFolder);
}

/// Turns the extension's menu into what travels, and lists its items in the order in which the
/// link numbers them. A click reaches the extension only from items whose target it is.
class MenuTranscript {
public:
    explicit MenuTranscript(const FIFinderSync& extension) : extension_(extension) {}

    std::vector<ShownMenu::Entry> takeEntries() { return std::move(entries_); }
    /// False when the menu is more than the link carries or a click needs to be kept for.
    bool isComplete() const { return isComplete_ && size_ <= kMaxFrameSize; }

    std::vector<MenuEntry> add(const Menu& menu, std::size_t depth = 1) {
        std::vector<MenuEntry> result;
        if (depth > kMaxMenuDepth || entries_.size() + menu.items.size() > kMaxMenuItems) {
            isComplete_ = false;
            return result;
        }
        result.reserve(menu.items.size());
        for (const std::shared_ptr<MenuItem>& item : menu.items) {
            MenuEntry entry;
            entry.title = item->title;
            entry.toolTip = item->toolTip.value_or("");
            entry.iconName = item->image != nullptr ? item->image->name : "";
            entry.state = static_cast<std::int8_t>(item->state);
            entry.indentation =
                static_cast<std::uint8_t>(std::clamp<std::int64_t>(item->indentationLevel, 0, 15));
            const bool isMine = item->target.lock().get() == &extension_ && item->action &&
                                item->action->name == "performAction:";
            entry.isEnabled = item->isEnabled && !item->isSeparator && isMine;
            entry.isHidden = item->isHidden;
            entry.isAlternate = item->isAlternate;
            entry.isSeparator = item->isSeparator;
            entry.hasSubmenu = item->submenu != nullptr;
            size_ += entry.title.size() + entry.toolTip.size() + entry.iconName.size();
            entries_.push_back({item, entry.isEnabled});
            if (item->submenu != nullptr) {
                entry.submenu = add(*item->submenu, depth + 1);
            }
            result.push_back(std::move(entry));
        }
        return result;
    }

private:
    const FIFinderSync& extension_;
    std::vector<ShownMenu::Entry> entries_;
    std::size_t size_ = 0;
    bool isComplete_ = true;
};

} // namespace

FinderRole::FinderRole(VolumeMapping volume, std::function<void()> wake)
    : wake_(std::move(wake)), volume_(std::move(volume)) {}

FinderRole::~FinderRole() {
    stop();
}

void FinderRole::start(ExtensionFactory factory, unsigned badgeThreads) {
    extensionThread_ = std::thread([this, factory = std::move(factory)] { runExtension(factory); });
    for (unsigned i = 0; i < badgeThreads; ++i) {
        badgeThreads_.emplace_back([this] { runBadges(); });
    }
}

void FinderRole::stop() {
    {
        const MutexLock lock(mutex_);
        phase_ = Phase::endingBadges;
        questionsChanged_.notify_all();
    }
    for (std::thread& thread : badgeThreads_) {
        thread.join();
    }
    badgeThreads_.clear();
    {
        const MutexLock lock(mutex_);
        phase_ = Phase::ending;
        jobsChanged_.notify_all();
    }
    if (extensionThread_.joinable()) {
        extensionThread_.join();
    }
}

void FinderRole::runExtension(const ExtensionFactory& factory) {
    std::shared_ptr<FIFinderSync> extension = factory();
    MutexLock lock(mutex_);
    noteOutcome(SendMonitor::takeOutcome());
    extension_ = extension;
    questionsChanged_.notify_all();
    while (phase_ != Phase::ending) {
        if (const auto job = jobs_.take()) {
            lock.unlock();
            std::visit([&](const auto& what) { perform(*extension, *job, what); }, job->what);
            lock.lock();
        } else if (const auto observation = model_.nextObservation()) {
            lock.unlock();
            perform(*extension, *observation);
            lock.lock();
        } else {
            lock.wait(jobsChanged_);
        }
    }
    extension_.reset();
    lock.unlock();
    extension.reset();
    lock.lock();
}

void FinderRole::perform(FIFinderSync& extension, const FinderModel::Observation& observation) {
    if (const auto url = itemURL(observation.folder, true)) {
        observation.isBegin ? extension.beginObservingDirectory(*url)
                            : extension.endObservingDirectory(*url);
    }
    const SendOutcome outcome = SendMonitor::takeOutcome();
    const MutexLock lock(mutex_);
    model_.finish(observation, outcome);
    noteOutcome(outcome);
    questionsChanged_.notify_all();
}

void FinderRole::perform(FIFinderSync& extension, const JobQueue::Job& job,
                         const MenuRequest& request) {
    MenuReply reply;
    reply.request = request.request;
    ShownMenu shown;
    shown.selection = selectionOf(request, volume());
    SendOutcome outcome = SendOutcome::nothingSent;
    if (shown.selection == nullptr) {
        reply.outcome = MenuOutcome::notOnVolume;
    } else {
        selection_ = shown.selection;
        const std::shared_ptr<Menu> menu = extension.menu(static_cast<FIMenuKind>(request.kind));
        selection_.reset();
        outcome = SendMonitor::takeOutcome();

        MenuTranscript transcript(extension);
        reply.title = menu->title;
        reply.entries = transcript.add(*menu);
        shown.entries = transcript.takeEntries();
        shown.bytes = menuBytes(*menu) + selectionBytes(*shown.selection) +
                      shown.entries.size() * sizeof(ShownMenu::Entry);
        if (!transcript.isComplete() || shown.bytes > ShownMenus::kMaxMenuBytes) {
            reply.outcome = MenuOutcome::tooLarge;
            reply.entries.clear();
            shown.entries.clear();
        } else if (outcome == SendOutcome::failed) {
            reply.outcome = MenuOutcome::hostFailed;
        }
    }

    const MutexLock lock(mutex_);
    noteOutcome(outcome);
    model_.noteOutcome(outcome);
    if (replies_.contains(job.connection)) {
        if (!shown.entries.empty()) {
            reply.menu = menus_.add(job.connection, std::move(shown));
        }
        finish(job, std::move(reply));
    }
}

void FinderRole::perform(FIFinderSync& extension, const JobQueue::Job& job, const Click& click) {
    ClickReply reply;
    reply.request = click.request;
    reply.outcome = ClickOutcome::unknownMenu;
    std::shared_ptr<const Selection> selection;
    std::shared_ptr<MenuItem> item;
    {
        const MutexLock lock(mutex_);
        if (const ShownMenu* const menu = menus_.find(job.connection, click.menu)) {
            reply.outcome = ClickOutcome::notClickable;
            if (click.item < menu->entries.size() && menu->entries[click.item].isClickable) {
                selection = menu->selection;
                item = menu->entries[click.item].item;
            }
        }
    }
    SendOutcome outcome = SendOutcome::nothingSent;
    if (item != nullptr) {
        selection_ = std::move(selection);
        extension.performAction(item);
        selection_.reset();
        outcome = SendMonitor::takeOutcome();
        reply.outcome = outcome == SendOutcome::failed       ? ClickOutcome::hostFailed
                        : outcome == SendOutcome::hostAbsent ? ClickOutcome::hostAbsent
                                                             : ClickOutcome::sent;
    }
    const MutexLock lock(mutex_);
    noteOutcome(outcome);
    model_.noteOutcome(outcome);
    if (replies_.contains(job.connection)) {
        finish(job, reply);
    }
}

/// The job is done, and its front end, which is still there, is told.
void FinderRole::finish(const JobQueue::Job& job, Message reply) {
    jobs_.finish(job);
    tell(job.connection, std::move(reply));
}

void FinderRole::runBadges() {
    MutexLock lock(mutex_);
    while (phase_ == Phase::running) {
        if (extension_ == nullptr) {
            lock.wait(questionsChanged_);
            continue;
        }
        const std::optional<FinderModel::Question> question = model_.nextQuestion();
        if (!question) {
            lock.wait(questionsChanged_);
            continue;
        }
        FIFinderSync& extension = *extension_;
        lock.unlock();
        if (const auto url = itemURL(question->path(), question->item.isFolder)) {
            questionInWork = &*question;
            extension.requestBadgeIdentifier(*url);
            questionInWork = nullptr;
        }
        const SendOutcome outcome = SendMonitor::takeOutcome();
        lock.lock();
        model_.finish(*question, outcome);
        noteOutcome(outcome);
        wake_();
    }
}

void FinderRole::connect(Connection connection) {
    const MutexLock lock(mutex_);
    replies_.try_emplace(connection);
    if (!watched_.empty()) {
        tell(connection, Volume{volume_.localFolder()});
    }
    if (!badgeKinds_.empty()) {
        tell(connection, BadgeKinds{badgeKinds_});
    }
    tell(connection, HostStateChange{hostState()});
}

void FinderRole::disconnect(Connection connection) {
    const MutexLock lock(mutex_);
    model_.disconnect(connection);
    replies_.erase(connection);
    jobs_.forget(connection);
    menus_.forget(connection);
    workChanged();
}

bool FinderRole::handle(Connection connection, Message message) {
    const MutexLock lock(mutex_);
    if (!replies_.contains(connection)) {
        return false;
    }
    if (const auto* const begin = std::get_if<Begin>(&message)) {
        const auto path = watchedPath(begin->folder);
        if (path && !model_.begin(connection, *path)) {
            return false;
        }
        wake_();
    } else if (const auto* const end = std::get_if<End>(&message)) {
        if (const auto path = watchedPath(end->folder)) {
            model_.end(connection, *path);
        }
    } else if (auto* const question = std::get_if<Ask>(&message)) {
        ask(connection, std::move(*question));
    } else if (auto* const request = std::get_if<MenuRequest>(&message)) {
        return enqueue(connection, std::move(*request));
    } else if (const auto* const click = std::get_if<Click>(&message)) {
        if (jobs_.add(connection, *click) != JobQueue::Added::added) {
            return false;
        }
    } else {
        return false;
    }
    workChanged();
    return true;
}

bool FinderRole::enqueue(Connection connection, MenuRequest request) {
    MenuReply reply;
    if (const auto older = jobs_.dropWaiting(connection, request.context)) {
        reply.request = *older;
        reply.outcome = MenuOutcome::superseded;
        tell(connection, reply);
    }
    reply.request = request.request;
    reply.outcome = MenuOutcome::tooLarge;
    const JobQueue::Added added = jobs_.add(connection, std::move(request));
    if (added == JobQueue::Added::tooLarge) {
        tell(connection, std::move(reply));
    }
    workChanged();
    return added != JobQueue::Added::tooMany;
}

void FinderRole::ask(Connection connection, Ask ask) {
    const auto folder = watchedPath(ask.folder);
    // A name that is no UTF-8 makes no URL: such an item has no badge and is never asked about.
    Badges settled;
    std::erase_if(ask.items, [&](AskedItem& item) {
        const bool isAskable = folder && isValidUTF8(item.name);
        if (!isAskable) {
            settled.items.push_back({std::move(item.name), {}, true});
        }
        return !isAskable;
    });
    if (folder) {
        for (std::string& name : model_.ask(connection, *folder, std::move(ask.items))) {
            settled.items.push_back({std::move(name), {}, true});
        }
    }
    if (!settled.items.empty()) {
        settled.folder = std::move(ask.folder);
        tell(connection, std::move(settled));
    }
}

std::optional<Message> FinderRole::takeMessage(Connection connection) {
    const MutexLock lock(mutex_);
    const auto replies = replies_.find(connection);
    if (replies == replies_.end()) {
        return std::nullopt;
    }
    if (std::optional<Message> message = replies->second.take()) {
        if (!replies->second.isFull() && jobs_.holdBack(connection, false)) {
            jobsChanged_.notify_all();
        }
        return message;
    }
    while (auto news = model_.takeNews(connection)) {
        if (auto folder = volume_.toLocal(news->folder); folder && !news->items.empty()) {
            news->folder = std::move(*folder);
            return std::move(*news);
        }
    }
    return std::nullopt;
}

void FinderRole::hostAppeared() {
    const MutexLock lock(mutex_);
    const HostState before = hostState();
    isHostThere_ = true;
    hasFailed_ = false;
    tellHostState(before);
    model_.hostAppeared();
    workChanged();
}

void FinderRole::hostVanished() {
    const MutexLock lock(mutex_);
    const HostState before = hostState();
    isHostThere_ = false;
    tellHostState(before);
    model_.hostVanished();
    workChanged();
}

bool FinderRole::isRetrying() const {
    const MutexLock lock(mutex_);
    return model_.isRetrying();
}

void FinderRole::retry() {
    const MutexLock lock(mutex_);
    model_.retry();
    workChanged();
}

void FinderRole::setVolume(const VolumeMapping& volume) {
    const MutexLock lock(mutex_);
    if (volume == volume_) {
        return;
    }
    model_.endAll();
    volume_ = volume;
    if (!watched_.empty()) {
        tellAll(Volume{volume_.localFolder()});
    }
    workChanged();
}

VolumeMapping FinderRole::volume() const {
    const MutexLock lock(mutex_);
    return volume_;
}

void FinderRole::addStatus(StatusReply& status) const {
    const MutexLock lock(mutex_);
    status.volume = volume_.localFolder();
    status.hostState = hostState();
    status.shownFolders = static_cast<std::uint32_t>(model_.shownFolders());
    status.waitingQuestions = static_cast<std::uint32_t>(model_.waitingQuestions());
}

void FinderRole::setDirectoryURLs(const std::vector<URL>& urls) {
    const MutexLock lock(mutex_);
    const bool wasWatching = !watched_.empty();
    watched_.clear();
    for (const URL& url : urls) {
        watched_.push_back(url.path());
    }
    if (!wasWatching && !watched_.empty()) {
        tellAll(Volume{volume_.localFolder()});
    }
}

void FinderRole::setBadgeImage(std::shared_ptr<Image> image,
                               const std::optional<std::string>& label,
                               std::string_view identifier) {
    BadgeKind kind{std::string(identifier), label.value_or(""),
                   image != nullptr ? image->path : std::string()};
    const MutexLock lock(mutex_);
    const auto same =
        std::find_if(badgeKinds_.begin(), badgeKinds_.end(),
                     [&](const BadgeKind& known) { return known.identifier == identifier; });
    if (same != badgeKinds_.end()) {
        *same = std::move(kind);
    } else if (badgeKinds_.size() < kMaxBadgeKinds) {
        badgeKinds_.push_back(std::move(kind));
    }
    tellAll(BadgeKinds{badgeKinds_});
}

void FinderRole::setBadgeIdentifier(std::string_view identifier, const URL& url) {
    const MutexLock lock(mutex_);
    const bool isRegistered =
        std::any_of(badgeKinds_.begin(), badgeKinds_.end(),
                    [&](const BadgeKind& kind) { return kind.identifier == identifier; });
    model_.setBadge(url.path(), isRegistered ? identifier : std::string_view(), questionInWork);
    wake_();
}

std::optional<URL> FinderRole::targetedURL() {
    return selection_ != nullptr ? std::optional(selection_->target) : std::nullopt;
}

std::optional<std::vector<URL>> FinderRole::selectedItemURLs() {
    return selection_ != nullptr ? std::optional(selection_->items) : std::nullopt;
}

std::shared_ptr<const Selection> FinderRole::selectionOf(const MenuRequest& request,
                                                         const VolumeMapping& volume) const {
    const auto folder = volume.toVolume(request.folder);
    const auto target = folder ? itemURL(*folder, true) : std::nullopt;
    if (!target) {
        return nullptr;
    }
    Selection selection{*target, {}};
    selection.items.reserve(request.selection.size());
    for (const SelectedItem& item : request.selection) {
        const auto path = volume.toVolume(item.path);
        // The folder's own menu: selection and target are one URL.
        const auto url = path == folder ? target
                         : path         ? itemURL(*path, item.isFolder)
                                        : std::nullopt;
        if (!url) {
            return nullptr;
        }
        selection.items.push_back(*url);
    }
    return std::make_shared<const Selection>(std::move(selection));
}

std::optional<std::string> FinderRole::watchedPath(std::string_view localPath) const {
    auto path = volume_.toVolume(localPath);
    if (!path || !isValidUTF8(*path)) {
        return std::nullopt;
    }
    for (const std::string& folder : watched_) {
        if (path->starts_with(folder) &&
            (path->size() == folder.size() || (*path)[folder.size()] == '/')) {
            return path;
        }
    }
    return std::nullopt;
}

void FinderRole::tell(Connection connection, Message message) {
    if (const auto replies = replies_.find(connection); replies != replies_.end()) {
        replies->second.add(std::move(message));
        if (replies->second.isFull()) {
            jobs_.holdBack(connection, true);
        }
        wake_();
    }
}

void FinderRole::tellAll(const Message& message) {
    for (auto& [connection, replies] : replies_) {
        replies.replace(message);
    }
    wake_();
}

HostState FinderRole::hostState() const {
    return !isHostThere_ ? HostState::absent
           : hasFailed_  ? HostState::notAnswering
                         : HostState::present;
}

void FinderRole::tellHostState(HostState before) {
    if (hostState() != before) {
        tellAll(HostStateChange{hostState()});
    }
}

void FinderRole::noteOutcome(SendOutcome outcome) {
    const HostState before = hostState();
    if (outcome == SendOutcome::failed || outcome == SendOutcome::arrived) {
        const bool hadFailed = std::exchange(hasFailed_, outcome == SendOutcome::failed);
        if (hadFailed != hasFailed_) {
            workChanged();
            wake_();
        }
    }
    tellHostState(before);
}

void FinderRole::workChanged() {
    jobsChanged_.notify_all();
    questionsChanged_.notify_all();
}

} // namespace corvid::link
