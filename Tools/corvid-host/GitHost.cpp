#include "Tools/corvid-host/GitHost.h"

#include "Platform/Unix/RuntimeFolder.h"
#include "Platform/Unix/VolumeFile.h"

#include <CorvidHostKit/Error.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace corvid {

namespace {

using Clock = std::chrono::steady_clock;

/// A burst of changes is taken as one once it pauses, and at the latest after a while, so that
/// badges move while it lasts.
constexpr std::chrono::milliseconds kPause(4);
constexpr std::chrono::milliseconds kLongestBurst(100);

/// How often a host that scans looks whether another one has begun to serve.
constexpr std::chrono::milliseconds kPauseBetweenLooks(500);

/// After a scan that failed, for want of descriptors for example.
constexpr std::chrono::milliseconds kPauseAfterFailedScan(1000);

std::string servedFolder(const std::string& named, const std::string& workTree) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::equivalent(named, workTree, error) || error) {
        return workTree;
    }
    std::string path = fs::absolute(named).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

OwnedFd makeWakeDescriptor() {
    OwnedFd descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!descriptor) {
        throw std::system_error(errno, std::generic_category(), "no eventfd");
    }
    return descriptor;
}

void wake(const OwnedFd& descriptor) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(descriptor.get(), &one, sizeof one);
}

bool isRuleFile(std::string_view path) {
    const std::string_view name = path.substr(path.rfind('/') + 1); // npos + 1 is 0
    return name == ".gitignore" || name == ".gitattributes";
}

} // namespace

GitHost::GitHost(const Options& options, EventLog& log, std::function<bool()> isToStop)
    : log_(log), isToStop_(std::move(isToStop)), isReadOnly_(options.isReadOnly),
      repository_(options.folder), folder_(servedFolder(options.folder, repository_.workTree())),
      treeWatcher_(repository_.workTree()), gitWatcher_(repository_.gitFolder()),
      commonWatcher_(repository_.commonFolder()),
      scanner_(
          repository_, User::current(),
          [this](const std::string& folder, int descriptor) {
              treeWatcher_.watch(folder, descriptor);
          },
          [this] { mayInterrupt(); }),
      viewer_(log, session_), wake_(makeWakeDescriptor()) {
    lookForOtherHost();
    log_.say("scanning", fmt::format("Scanning {} …", folder_), {{"folder", folder_}});
    const auto start = Clock::now();
    gitWatcher_.watch("");
    for (const char* folder : {"", "info", "refs/heads"}) {
        commonWatcher_.watch(folder);
    }
    std::error_code error;
    const std::string branches = repository_.commonFolder() + "/refs/heads";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(branches, error)) {
        if (entry.is_directory()) {
            commonWatcher_.watch(
                entry.path().lexically_relative(repository_.commonFolder()).string());
        }
    }
    // The index may have changed before its folder was watched.
    repository_.reload();
    const Scan scan = scanner_.scan("");
    const MutexLock lock(mutex_);
    tree_.replace("", scan);
    tree_.takeChanges({});
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    log_.say("scanned", fmt::format("{} files in {} ms", tree_.fileCount(), time.count()),
             {{"files", tree_.fileCount()}, {"milliseconds", time.count()}});
}

/// Ends a scan when the process is to stop, or when, before this host serves, another one does.
void GitHost::mayInterrupt() {
    if (isToStop_()) {
        throw Stopped{};
    }
    if (host_ == nullptr && Clock::now() >= nextLook_) {
        nextLook_ = Clock::now() + kPauseBetweenLooks;
        lookForOtherHost();
    }
}

void GitHost::lookForOtherHost() const {
    if (const auto other = VolumeFile::ofHost(RuntimeFolder::ofThisUser()).read()) {
        throw hostkit::Error(fmt::format("another host application (process {}) serves {} to this "
                                         "user already; stop it first",
                                         other->process, other->folder));
    }
}

void GitHost::open() {
    host_ = std::make_unique<hostkit::Host>(folder_, *this);
    thread_ = std::thread([this] { run(); });
    log_.say("serving", fmt::format("Serving {}{}", folder_, isReadOnly_ ? " (read only)" : ""),
             {{"folder", folder_}, {"readOnly", isReadOnly_}});
}

GitHost::~GitHost() {
    {
        const MutexLock lock(mutex_);
        isStopping_ = true;
    }
    wake(wake_);
    if (thread_.joinable()) {
        thread_.join();
        host_.reset();
        log_.say("stopped", "Stopped", nlohmann::ordered_json::object());
    }
}

std::string GitHost::badge(const std::string& path) {
    const MutexLock lock(mutex_);
    return std::string(tree_.badge(relative(path)).rawValue());
}

std::vector<hostkit::MenuItem> GitHost::menu(const std::vector<std::string>& paths, bool) {
    GitSelection selection;
    const MutexLock lock(mutex_);
    for (const std::string& path : paths) {
        tree_.forEachFile(relative(path), [&](const std::string&, const FileState& state) {
            selection.add(state);
        });
    }
    return gitMenu(selection, isReadOnly_);
}

void GitHost::actionPerformed(const hostkit::Click& click) {
    log_.say("action",
             fmt::format("{} on {}{}", click.title,
                         click.paths.empty() ? std::string("nothing") : click.paths.front(),
                         click.paths.size() > 1
                             ? fmt::format(" and {} more", click.paths.size() - 1)
                             : std::string()),
             {{"action", click.action}, {"title", click.title}, {"paths", click.paths}});
    bool isTooMany = false;
    {
        const MutexLock lock(mutex_);
        isTooMany = clicks_.size() >= kMostClicks;
        if (!isTooMany) {
            clicks_.push_back(click);
        }
    }
    if (isTooMany) {
        log_.problem(
            fmt::format("\"{}\" is not done, since {} clicks wait already; choose it again "
                        "when they are done",
                        click.title, kMostClicks));
    }
    wake(wake_);
}

void GitHost::extensionChanged(const std::string& portName, bool isOpen) {
    log_.say("extension",
             fmt::format("{} extension {}", isOpen ? "Serving the" : "Lost the", portName),
             {{"port", portName}, {"open", isOpen}});
}

void GitHost::folderShown(const std::string& path) {
    {
        const MutexLock lock(mutex_);
        shown_.insert(relative(path));
    }
    log_.say("shown", "On the screen: " + path, {{"folder", path}});
}

void GitHost::folderHidden(const std::string& path) {
    {
        const MutexLock lock(mutex_);
        shown_.erase(relative(path));
    }
    log_.say("hidden", "Off the screen: " + path, {{"folder", path}});
}

void GitHost::problem(const std::string& text) {
    log_.problem(text);
}

void GitHost::run() {
    while (waitForWork()) {
        try {
            work();
            lastFailure_.clear();
        } catch (const Stopped&) {
            return;
        } catch (const std::exception& error) {
            // What was to be looked at is not known any more: all of it, in a while.
            touched_ = {""};
            isRepositoryTouched_ = true;
            mustTryAgain_ = true;
            if (lastFailure_ != error.what()) {
                lastFailure_ = error.what();
                log_.problem(lastFailure_);
            }
        }
    }
}

void GitHost::work() {
    update();
    while (true) {
        hostkit::Click click;
        {
            const MutexLock lock(mutex_);
            if (clicks_.empty()) {
                return;
            }
            click = std::move(clicks_.front());
            clicks_.pop_front();
        }
        try {
            perform(click);
        } catch (const std::exception& error) {
            log_.problem(error.what());
        }
        // Not left to the watchers: the badge is to answer the click.
        isRepositoryTouched_ = true;
        update();
    }
}

bool GitHost::waitForWork() {
    std::array<pollfd, 4> sources{{{wake_.get(), POLLIN, 0},
                                   {treeWatcher_.descriptor(), POLLIN, 0},
                                   {gitWatcher_.descriptor(), POLLIN, 0},
                                   {commonWatcher_.descriptor(), POLLIN, 0}}};
    Clock::time_point latest;
    int timeout = -1;
    if (std::exchange(mustTryAgain_, false)) {
        timeout = static_cast<int>(kPauseAfterFailedScan.count());
        latest = Clock::now() + kPauseAfterFailedScan;
    }
    while (true) {
        const int ready = poll(sources.data(), sources.size(), timeout);
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        std::uint64_t count = 0;
        const bool isWoken = read(wake_.get(), &count, sizeof count) > 0;
        {
            const MutexLock lock(mutex_);
            if (isStopping_) {
                return false;
            }
        }
        readWatchers();
        const bool hasWork = isRepositoryTouched_ || !touched_.empty();
        const auto now = Clock::now();
        if (isWoken || (hasWork && (ready == 0 || (timeout > 0 && now >= latest)))) {
            return true;
        }
        if (hasWork && timeout < 0) {
            timeout = static_cast<int>(kPause.count());
            latest = now + kLongestBurst;
        }
    }
}

void GitHost::readWatchers() {
    treeWatcher_.read(touched_);
    std::set<std::string> gitPaths;
    gitWatcher_.read(gitPaths);
    commonWatcher_.read(gitPaths);
    for (const std::string& path : gitPaths) {
        const bool isBranch = path.starts_with("refs/heads");
        if (isBranch) {
            commonWatcher_.watch(path); // when it is a folder
        }
        areRulesTouched_ |= path == "config" || path == "info/exclude" || path.empty();
        isRepositoryTouched_ |= areRulesTouched_ || path == "index" || path == "HEAD" ||
                                path == "packed-refs" || (isBranch && !path.ends_with(".lock"));
    }
}

void GitHost::update() {
    std::set<std::string> touched = std::exchange(touched_, {});
    if (std::exchange(isRepositoryTouched_, false) &&
        (repository_.reload() || std::exchange(areRulesTouched_, false))) {
        touched.insert("");
    }
    std::vector<std::string> paths;
    paths.reserve(touched.size());
    for (const std::string& path : touched) {
        // What rules say of one folder, they say of all below it.
        paths.push_back(
            isRuleFile(path)
                ? path.substr(0, path.rfind('/') == std::string::npos ? 0 : path.rfind('/'))
                : path);
    }
    std::ranges::sort(paths);
    TreeScanner::Pass pass(scanner_);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const bool isCovered = i > 0 && (paths.front().empty() || paths[i] == paths[i - 1] ||
                                         paths[i].starts_with(paths[i - 1] + "/"));
        if (isCovered) {
            paths[i] = paths[i - 1];
            continue;
        }
        const Scan scan = pass.scan(paths[i]);
        const MutexLock lock(mutex_);
        tree_.replace(paths[i], scan);
    }
    BadgeTree::Changes changes;
    {
        const MutexLock lock(mutex_);
        changes = tree_.takeChanges(shown_);
    }
    for (const BadgeTree::Change& change : changes.shown) {
        host_->push(absolute(change.path), std::string(change.badge.rawValue()),
                    hostkit::PushTo::whoShowsTheFolder);
    }
    if (changes.example) {
        const std::string first = absolute(changes.example->path);
        const std::string_view badge = changes.example->badge.rawValue();
        log_.say("badges",
                 fmt::format("{}: {}{}", first, badge,
                             changes.count > 1 ? fmt::format(", and {} more", changes.count - 1)
                                               : std::string()),
                 {{"count", changes.count}, {"path", first}, {"badge", badge}});
    }
    if (treeWatcher_.isIncomplete() && !std::exchange(hasWarned_, true)) {
        log_.problem("the system has too few file watches for this tree, so that some changes go "
                     "unnoticed; raise fs.inotify.max_user_watches");
    }
}

void GitHost::perform(const hostkit::Click& click) {
    if (click.action == kCopyPathAction || click.action == kCopyRepositoryPathAction) {
        copy(click);
    } else if (click.action == kShowChangesAction) {
        const std::vector<std::string> changed = files(click.paths, hasChanges);
        if (changed.empty()) {
            log_.problem("there are no changes to show any more");
        } else {
            viewer_.show(repository_.changes(changed));
        }
    } else if (isReadOnly_) {
        log_.problem(fmt::format("\"{}\" is not done: the host is read only", click.title));
    } else if (click.action == kStageAction) {
        repository_.stage(files(click.paths, canStage));
    } else if (click.action == kUnstageAction) {
        repository_.unstage(files(click.paths, canUnstage));
    } else if (click.action == kCheckOutAction) {
        repository_.setCheckedOut(files(click.paths, canCheckOut), true);
    } else if (click.action == kCheckInAction) {
        repository_.setCheckedOut(files(click.paths, canCheckIn), false);
    } else {
        log_.problem(
            fmt::format("the action \"{}\" of \"{}\" is unknown here", click.action, click.title));
    }
}

void GitHost::copy(const hostkit::Click& click) {
    std::string text;
    for (const std::string& path : click.paths) {
        const std::string inRepository = relative(path).empty() ? "." : relative(path);
        text.append(text.empty() ? "" : "\n")
            .append(click.action == kCopyPathAction ? path : inRepository);
    }
    if (const auto failure = copyToClipboard(text, session_)) {
        log_.problem(*failure);
    } else {
        log_.say("copied", "Copied " + text, {{"text", text}});
    }
}

std::vector<std::string> GitHost::files(const std::vector<std::string>& paths,
                                        bool (*test)(const FileState& state)) {
    std::set<std::string> found;
    const MutexLock lock(mutex_);
    for (const std::string& path : paths) {
        tree_.forEachFile(relative(path), [&](const std::string& file, const FileState& state) {
            if (test(state)) {
                found.insert(file);
            }
        });
    }
    return {found.begin(), found.end()};
}

std::string GitHost::relative(std::string_view path) const {
    return std::string(path.size() > folder_.size() ? path.substr(folder_.size() + 1) : "");
}

std::string GitHost::absolute(std::string_view path) const {
    return path.empty() ? folder_ : fmt::format("{}/{}", folder_, path);
}

} // namespace corvid
