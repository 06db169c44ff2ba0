#include "Extensions/FileManagers/Gtk/FolderListing.h"

#include "Extensions/FileManagers/Gtk/GLibText.h"

#include <dirent.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid::gtk {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

struct Job {
    std::string folder;
    Listing which;
    HearItems hear;
    std::vector<link::AskedItem> items;
    std::size_t heard = 0;
};

/// What is being listed, and what waits for that. On the main thread.
class Jobs {
public:
    void add(std::unique_ptr<Job> job);
    /// Everything of `job` was heard.
    void end(Job* job);

private:
    void startSome();
    bool start(std::unique_ptr<Job> job);
    bool isInWork(const std::string& folder) const;

    std::vector<std::unique_ptr<Job>> inWork_; ///< each a thread, until it was heard
    std::deque<std::unique_ptr<Job>> waiting_;
};

/// Never freed: a thread that a disk holds up may outlive everything else.
Jobs& jobs() {
    static auto* const theOnes = new Jobs;
    return *theOnes;
}

struct SortedItem {
    link::AskedItem item;
    GText key;

    friend bool operator<(const SortedItem& a, const SortedItem& b) {
        return a.item.isFolder != b.item.isFolder ? a.item.isFolder
                                                  : g_strcmp0(a.key.get(), b.key.get()) < 0;
    }
};

bool isFolder(DIR* parent, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) {
        return entry.d_type == DT_DIR;
    }
    struct stat status{};
    return fstatat(dirfd(parent), entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

std::vector<link::AskedItem> allItems(const std::string& folder) {
    const std::unique_ptr<DIR, CloseFolder> reader(opendir(folder.c_str()));
    std::vector<link::AskedItem> all;
    for (const dirent* entry = reader ? readdir(reader.get()) : nullptr; entry != nullptr;
         entry = readdir(reader.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            all.push_back({std::string(name), isFolder(reader.get(), *entry)});
        }
    }
    return all;
}

std::vector<link::AskedItem> firstOf(std::vector<link::AskedItem> items) {
    std::vector<SortedItem> sorted;
    for (link::AskedItem& item : items) {
        if (item.name.front() != '.') {
            const GText shown(g_filename_display_name(item.name.c_str()));
            sorted.push_back(
                {std::move(item), GText(g_utf8_collate_key_for_filename(shown.get(), -1))});
        }
    }
    const auto count = static_cast<std::ptrdiff_t>(std::min(sorted.size(), kFirstItems));
    const auto end = sorted.begin() + count;
    std::partial_sort(sorted.begin(), end, sorted.end());
    std::vector<link::AskedItem> first;
    std::transform(sorted.begin(), end, std::back_inserter(first),
                   [](SortedItem& item) { return std::move(item.item); });
    return first;
}

gboolean handOver(gpointer data) {
    auto& job = *static_cast<Job*>(data);
    const std::size_t count = std::min(job.items.size() - job.heard, kListedAtOnce);
    const auto begin = job.items.begin() + static_cast<std::ptrdiff_t>(job.heard);
    job.hear(job.folder, {begin, begin + static_cast<std::ptrdiff_t>(count)});
    job.heard += count;
    return job.heard < job.items.size() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

gpointer run(gpointer data) {
    auto* const job = static_cast<Job*>(data);
    job->items = allItems(job->folder);
    if (job->which == Listing::first) {
        job->items = firstOf(std::move(job->items));
    }
    g_idle_add_full(G_PRIORITY_DEFAULT, handOver, job,
                    [](gpointer done) { jobs().end(static_cast<Job*>(done)); });
    return nullptr;
}

void Jobs::add(std::unique_ptr<Job> job) {
    std::erase_if(waiting_, [&](const auto& other) {
        return other->folder == job->folder && other->which == job->which;
    });
    waiting_.push_back(std::move(job));
    startSome();
    if (waiting_.size() > kMaxWaitingListings) {
        waiting_.pop_front();
    }
}

void Jobs::end(Job* job) {
    std::erase_if(inWork_, [&](const auto& other) { return other.get() == job; });
    startSome();
}

/// The newest first: it is what people look at.
void Jobs::startSome() {
    for (auto next = waiting_.end(); next != waiting_.begin() && inWork_.size() < kMaxListings;) {
        --next;
        // On a disk that hangs, each further thread for the same folder would hang as well.
        if (!isInWork((*next)->folder)) {
            std::unique_ptr<Job> job = std::move(*next);
            next = waiting_.erase(next);
            if (!start(std::move(job))) {
                return;
            }
        }
    }
}

bool Jobs::start(std::unique_ptr<Job> job) {
    GThread* const thread = g_thread_try_new("corvid-listing", run, job.get(), nullptr);
    if (thread == nullptr) {
        return false; // The badges come when the file manager asks for them.
    }
    g_thread_unref(thread);
    inWork_.push_back(std::move(job));
    return true;
}

bool Jobs::isInWork(const std::string& folder) const {
    return std::any_of(inWork_.begin(), inWork_.end(),
                       [&](const auto& job) { return job->folder == folder; });
}

} // namespace

void listItems(const std::string& folder, Listing which, HearItems hear) {
    jobs().add(std::make_unique<Job>(Job{folder, which, std::move(hear), {}}));
}

} // namespace corvid::gtk
