#include "Extensions/FileManagers/Gtk/FrontEnd.h"

#include <utility>
#include <variant>

namespace corvid::gtk {

namespace {

/// Names that are remembered for drawing anew; beyond it those of hidden folders are forgotten.
constexpr std::size_t kMaxDrawnItems = 100'000;

struct Place {
    std::string folder;
    std::string name;
};

Place placeOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? Place{}
                                      : Place{path.substr(0, slash), path.substr(slash + 1)};
}

} // namespace

FrontEnd::FrontEnd(link::LinkClient::Options options, FileManager fileManager)
    : fileManager_(std::move(fileManager)), client_(*this, std::move(options)),
      badges_(client_,
              [this](const std::string& folder, const std::vector<std::string>& names,
                     link::BadgeCache::Change change) {
                  redraw(folder, names,
                         change == link::BadgeCache::Change::firstBadge
                             ? RedrawQueue::Reason::appeared
                             : RedrawQueue::Reason::changed);
              }),
      menus_(client_, [this] { fileManager_.menusChanged(); }) {
    restartNote_.isAnswer = false;
    client_.open();
}

void FrontEnd::begin(const std::string& folder) {
    badges_.begin(folder);
    if (const auto drawn = drawn_.find(folder); drawn != drawn_.end()) {
        redraw(folder, drawn->second, RedrawQueue::Reason::appeared);
    }
}

void FrontEnd::end(const std::string& folder) {
    badges_.end(folder);
}

std::string FrontEnd::badge(const std::string& path, bool isFolder) {
    if (!volume_.empty() && !isOnVolume(path)) {
        return {};
    }
    const Place place = placeOf(path);
    if (drawn_[place.folder].insert(place.name).second && ++drawnItems_ > kMaxDrawnItems) {
        std::erase_if(drawn_, [&](const auto& folder) {
            return folder.first != place.folder && !badges_.isShown(folder.first);
        });
        drawnItems_ = 0;
        for (const auto& [folder, names] : drawn_) {
            drawnItems_ += names.size();
        }
    }
    // A call that we did not cause means that the item has changed, or is new.
    return std::string(redrawing_.erase(path) != 0
                           ? badges_.badge(place.folder, place.name, isFolder)
                           : badges_.refresh(place.folder, place.name, isFolder));
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
        if (!isOnVolume(item.path)) {
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
        volume_ = volume->folder;
        badges_.received(*volume);
        fileManager_.menusChanged(); // there was none while it was not known
    } else if (const auto* const reply = std::get_if<link::MenuReply>(&message)) {
        menus_.received(*reply);
    } else if (const auto* const change = std::get_if<link::HostStateChange>(&message)) {
        menus_.received(*change);
    }
}

bool FrontEnd::isOnVolume(std::string_view path) const {
    return !volume_.empty() && path.size() >= volume_.size() &&
           path.substr(0, volume_.size()) == volume_ &&
           (path.size() == volume_.size() || path[volume_.size()] == '/');
}

template <class Names>
void FrontEnd::redraw(const std::string& folder, const Names& names, RedrawQueue::Reason reason) {
    const std::string prefix = folder + "/";
    for (const std::string& name : names) {
        redraws_.add(prefix + name, reason);
    }
    fileManager_.redrawWanted();
}

} // namespace corvid::gtk
