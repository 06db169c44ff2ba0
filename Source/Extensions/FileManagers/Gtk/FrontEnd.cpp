#include "Extensions/FileManagers/Gtk/FrontEnd.h"

#include <utility>
#include <variant>

namespace corvid::gtk {

namespace {

/// Names that are remembered for drawing anew; beyond it those of hidden folders are forgotten.
constexpr std::size_t kMaxDrawnItems = 100'000;

} // namespace

FrontEnd::FrontEnd(link::LinkClient::Options options, FileManager fileManager)
    : fileManager_(std::move(fileManager)), client_(*this, std::move(options)),
      badges_(client_,
              [this](const std::string& folder, const std::vector<std::string>& names,
                     link::BadgeCache::Change change) {
                  redraw(folder, names,
                         change == link::BadgeCache::Change::firstBadge
                             ? RedrawQueue::Reason::firstBadge
                             : RedrawQueue::Reason::changed);
              }),
      menus_(client_, [this] { fileManager_.menusChanged(); }) {
    restartNote_.isAnswer = false;
    client_.open();
}

void FrontEnd::begin(const std::string& folder) {
    badges_.begin(folder);
    if (const auto drawn = drawn_.find(folder); drawn != drawn_.end()) {
        std::vector<std::string> names;
        for (const auto& [name, item] : drawn->second) {
            names.push_back(name);
        }
        redraw(folder, names, RedrawQueue::Reason::cameIntoView);
    }
    if (fileManager_.asksLate && volume_.holds(folder)) {
        fileManager_.listingWanted(folder, Listing::first);
    }
}

void FrontEnd::end(const std::string& folder) {
    badges_.end(folder);
}

FrontEnd::Place FrontEnd::placeOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? Place{}
                                      : Place{path.substr(0, slash), path.substr(slash + 1)};
}

FrontEnd::Drawn& FrontEnd::drawn(const Place& place) {
    auto& folder = drawn_[place.folder];
    const auto [item, isNew] = folder.try_emplace(place.name);
    if (isNew && ++drawnItems_ > kMaxDrawnItems) {
        std::erase_if(drawn_, [&](const auto& other) {
            return other.first != place.folder && !badges_.isShown(other.first);
        });
        drawnItems_ = 0;
        for (const auto& [name, items] : drawn_) {
            drawnItems_ += items.size();
        }
    }
    return item->second;
}

void FrontEnd::expect(const std::string& folder, const std::vector<link::AskedItem>& items) {
    const auto drawn = drawn_.find(folder);
    std::vector<std::string> known;
    for (const link::AskedItem& item : items) {
        const bool isKnown = !badges_.badge(folder, item.name, item.isFolder).empty();
        if (isKnown && (drawn == drawn_.end() || !drawn->second.contains(item.name))) {
            known.push_back(item.name);
        }
    }
    if (!known.empty()) {
        redraw(folder, known, RedrawQueue::Reason::firstBadge);
    }
}

std::string FrontEnd::badge(const std::string& path, bool isFolder) {
    if (!volume_.folder.empty() && !volume_.holds(path)) {
        return {};
    }
    const Place place = placeOf(path);
    Drawn& item = drawn(place);
    // A further call that we did not cause means that the item has changed.
    const bool hasChanged = redrawing_.erase(path) == 0 && item.wasAskedFor;
    item.wasAskedFor = true;
    std::string badge(hasChanged ? badges_.refresh(place.folder, place.name, isFolder)
                                 : badges_.badge(place.folder, place.name, isFolder));
    const std::string added = std::exchange(item.added, {});
    if (!added.empty() && added != badge) {
        // What was added before the file manager asked it adds to what it is answered.
        redraw(place.folder, {place.name}, RedrawQueue::Reason::changed);
    }
    return badge;
}

std::string FrontEnd::badgeToAdd(const std::string& path) {
    const Place place = placeOf(path);
    std::string badge(badges_.known(place.folder, place.name));
    if (!badge.empty()) {
        drawn(place).added = badge;
    }
    return badge;
}

void FrontEnd::badgeWillBeAskedFor(const std::string& path) {
    // A file manager that draws only what is in view may never ask.
    if (redrawing_.size() >= kMaxDrawnItems) {
        redrawing_.clear();
    }
    redrawing_.insert(path);
}

const MenuCache::KnownMenu* FrontEnd::menu(const MenuSelection& selection, MenuCache::Use use) {
    if (isRefused_) {
        return &restartNote_;
    }
    for (const link::SelectedItem& item : selection.items) {
        if (!volume_.holds(item.path)) {
            return nullptr;
        }
    }
    return selection.items.empty() ? nullptr : menus_.menu(selection, use);
}

void FrontEnd::linkUp() {
    badges_.linkUp();
    menus_.linkUp();
}

void FrontEnd::linkDown(const std::string& /*reason*/) {
    // The badges stay as they were last known.
    menus_.linkDown();
}

void FrontEnd::linkRefused(const std::string& /*reason*/) {
    isRefused_ = true;
    restartNote_.title = "Restart the file manager";
    fileManager_.menusChanged();
}

void FrontEnd::received(link::Message message) {
    if (const auto* const badges = std::get_if<link::Badges>(&message)) {
        badges_.received(*badges);
        menus_.received(*badges);
    } else if (const auto* const volume = std::get_if<link::Volume>(&message)) {
        volumeChanged(std::exchange(volume_, *volume));
    } else if (const auto* const reply = std::get_if<link::MenuReply>(&message)) {
        menus_.received(*reply);
    } else if (const auto* const change = std::get_if<link::HostStateChange>(&message)) {
        menus_.received(*change);
    }
}

void FrontEnd::volumeChanged(const link::Volume& before) {
    badges_.received(volume_);
    for (const std::string& folder : badges_.shownFolders()) {
        if (!volume_.holds(folder)) {
            continue;
        }
        if (!before.folder.empty() && !before.holds(folder)) {
            // The file manager asked for the badges of its items already, to be told of none.
            fileManager_.listingWanted(folder, Listing::all);
        } else if (fileManager_.asksLate) {
            fileManager_.listingWanted(folder, Listing::first);
        }
    }
    fileManager_.menusChanged(); // there was none while the volume was not known
}

void FrontEnd::redraw(const std::string& folder, const std::vector<std::string>& names,
                      RedrawQueue::Reason reason) {
    const std::string prefix = folder + "/";
    for (const std::string& name : names) {
        redraws_.add(prefix + name, reason);
    }
    fileManager_.redrawWanted();
}

} // namespace corvid::gtk
