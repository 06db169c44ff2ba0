#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Unix/OwnedFd.h"
#include "Tools/corvid-host/ChangesViewer.h"
#include "Tools/corvid-host/EventLog.h"
#include "Tools/corvid-host/Git/BadgeTree.h"
#include "Tools/corvid-host/Git/GitMenu.h"
#include "Tools/corvid-host/Git/GitRepository.h"
#include "Tools/corvid-host/Git/TreeScanner.h"
#include "Tools/corvid-host/Git/TreeWatcher.h"

#include <CorvidHostKit/Application.h>
#include <CorvidHostKit/Host.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvid {

/// A host application over a git work tree.
///
/// Questions are answered from the BadgeTree, on HostKit's thread. Everything that takes time is
/// done on one thread of this object's own: it reads what the watchers say, scans what has
/// changed, performs actions, and pushes the badges that differ.
class GitHost : public hostkit::Application {
public:
    struct Options {
        std::string folder;
        bool isReadOnly = false; ///< offers no action that changes the repository
    };

    /// So many clicks may wait for the thread; further ones are refused, and that is said.
    static constexpr std::size_t kMostClicks = 256;

    /// Thrown when a scan is given up because of `isToStop`.
    struct Stopped {};

    /// Scans the work tree that `options.folder` is in. `log` is not owned. Starts no thread.
    /// `isToStop` is asked while it scans, here and later. Throws GitError, std::system_error,
    /// hostkit::Error as soon as another host is seen to serve this user, and Stopped.
    GitHost(const Options& options, EventLog& log, std::function<bool()> isToStop);
    ~GitHost() override;

    /// Begins to serve. Throws hostkit::Error. Once.
    void open();

private:
    std::string badge(const std::string& path) override;
    std::vector<hostkit::MenuItem> menu(const std::vector<std::string>& paths,
                                        bool operatingOnParent) override;
    void actionPerformed(const hostkit::Click& click) override;
    void extensionChanged(const std::string& portName, bool isOpen) override;
    void folderShown(const std::string& path) override;
    void folderHidden(const std::string& path) override;
    void problem(const std::string& text) override;

    void mayInterrupt();
    void lookForOtherHost() const;
    void run();
    bool waitForWork();
    void work();
    void readWatchers();
    void update();
    void perform(const hostkit::Click& click);
    void copy(const hostkit::Click& click);
    /// The files at and below the paths for which `test` holds.
    std::vector<std::string> files(const std::vector<std::string>& paths,
                                   bool (*test)(const FileState& state));
    std::string relative(std::string_view path) const;
    std::string absolute(std::string_view path) const;

    EventLog& log_;
    const std::function<bool()> isToStop_;
    const bool isReadOnly_;
    GitRepository repository_;
    const std::string folder_; ///< the work tree, as its paths are served
    const Session session_ = Session::current();

    // Used by the thread of this object only, once it runs.
    TreeWatcher treeWatcher_;
    TreeWatcher gitWatcher_;
    TreeWatcher commonWatcher_;
    TreeScanner scanner_;
    ChangesViewer viewer_;
    std::set<std::string> touched_;
    bool isRepositoryTouched_ = false;
    bool areRulesTouched_ = false;
    bool hasWarned_ = false;
    std::chrono::steady_clock::time_point nextLook_; ///< for another host, before this one serves
    std::string lastFailure_;                        ///< what run() has said last
    bool mustTryAgain_ = false;                      ///< in a while, since something failed

    Mutex mutex_;
    BadgeTree tree_ CORVID_GUARDED_BY(mutex_);
    std::set<std::string> shown_ CORVID_GUARDED_BY(mutex_); ///< folders, as in the tree
    std::deque<hostkit::Click> clicks_ CORVID_GUARDED_BY(mutex_);
    bool isStopping_ CORVID_GUARDED_BY(mutex_) = false;

    const OwnedFd wake_; ///< an eventfd: there is a click, or the end
    std::unique_ptr<hostkit::Host> host_;
    std::thread thread_;
};

} // namespace corvid
