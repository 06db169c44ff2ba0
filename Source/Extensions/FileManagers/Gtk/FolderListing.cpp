#include "Extensions/FileManagers/Gtk/FolderListing.h"

#include "Extensions/FileManagers/Gtk/GLibText.h"

#include <dirent.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>

namespace corvid::gtk {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

struct Listing {
    std::string folder;
    HearFirstItems hear;
    std::vector<link::AskedItem> items;
};

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

std::vector<link::AskedItem> firstItems(const std::string& folder) {
    const std::unique_ptr<DIR, CloseFolder> reader(opendir(folder.c_str()));
    std::vector<SortedItem> all;
    for (const dirent* entry = reader ? readdir(reader.get()) : nullptr; entry != nullptr;
         entry = readdir(reader.get())) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        const GText shown(g_filename_display_name(entry->d_name));
        all.push_back({{entry->d_name, isFolder(reader.get(), *entry)},
                       GText(g_utf8_collate_key_for_filename(shown.get(), -1))});
    }
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(std::min(all.size(), kFirstItems));
    std::partial_sort(all.begin(), end, all.end());
    std::vector<link::AskedItem> first;
    std::transform(all.begin(), end, std::back_inserter(first),
                   [](SortedItem& item) { return std::move(item.item); });
    return first;
}

gboolean handOver(gpointer data) {
    const auto& listing = *static_cast<const Listing*>(data);
    listing.hear(listing.folder, listing.items);
    return G_SOURCE_REMOVE;
}

gpointer run(gpointer data) {
    auto* const listing = static_cast<Listing*>(data);
    listing->items = firstItems(listing->folder);
    g_idle_add_full(G_PRIORITY_DEFAULT, handOver, listing,
                    [](gpointer done) { delete static_cast<Listing*>(done); });
    return nullptr;
}

} // namespace

void listFirstItems(const std::string& folder, HearFirstItems hear) {
    auto* const listing = new Listing{folder, std::move(hear), {}};
    if (GThread* const thread = g_thread_try_new("corvid-listing", run, listing, nullptr)) {
        g_thread_unref(thread);
    } else { // The file manager asks for the badges in its own time.
        delete listing;
    }
}

} // namespace corvid::gtk
