#include "Tests/Extensions/Finder/Mac/PortablePlayer.h"

#include "Tests/Support/ValueText.h"

#include <gtest/gtest.h>

namespace corvid {

PortablePlayer::PortablePlayer(CallLog& calls) : finder_(calls) {}

PortablePlayer::~PortablePlayer() {
    FIFinderSyncController::setDefaultController(previousFinder_);
    setPlatform(previousPlatform_);
}

void PortablePlayer::Finder::setBadgeIdentifier(std::string_view identifier, const URL& url) {
    fake.setBadgeIdentifier(identifier, url);
    const MutexLock lock(mutex_);
    ++badges_;
    changed_.notify_all();
}

void PortablePlayer::Finder::waitForBadges(std::size_t count) {
    MutexLock lock(mutex_);
    while (badges_ < count) {
        lock.wait(changed_);
    }
}

void PortablePlayer::startExtension() {
    controller_ = CVMAFinderSync::create();
}

void PortablePlayer::endExtension() {
    controller_.reset();
}

void PortablePlayer::beginObserving(const URL& folder) {
    controller_->beginObservingDirectory(folder);
}

void PortablePlayer::endObserving(const URL& folder) {
    controller_->endObservingDirectory(folder);
}

void PortablePlayer::show(const URL& item) {
    controller_->requestBadgeIdentifier(item);
}

void PortablePlayer::select(const std::optional<URL>& targeted,
                            const std::optional<std::vector<URL>>& selected) {
    finder_.fake.setTargetedURL(targeted);
    finder_.fake.setSelectedItemURLs(selected);
}

std::string PortablePlayer::describe(const Menu& menu) const {
    std::string text;
    for (const auto& item : menu.items) {
        text += menuItemText(*item) +
                (item->target.lock() == controller_ ? " of the extension" : " of nobody") +
                (item->image != nullptr ? " with the icon\n" : "\n");
        if (item->submenu != nullptr) {
            text += describe(*item->submenu);
        }
    }
    return text;
}

std::string PortablePlayer::openMenu(FIMenuKind kind) {
    menu_ = controller_->menu(kind);
    return "menu \"" + menu_->title + "\"\n" + describe(*menu_);
}

void PortablePlayer::click(const std::vector<std::size_t>& place) {
    std::shared_ptr<MenuItem> item;
    for (const std::size_t index : place) {
        item = (item == nullptr ? menu_ : item->submenu)->items.at(index);
    }
    ASSERT_EQ(item->action, Selector{"performAction:"});
    const auto target = std::dynamic_pointer_cast<FIFinderSync>(item->target.lock());
    ASSERT_NE(target, nullptr);
    target->performAction(item);
}

void PortablePlayer::clickSomethingElse() {
    controller_->performAction(std::make_shared<Object>());
}

void PortablePlayer::waitForBadges(std::size_t count) {
    finder_.waitForBadges(count);
}

} // namespace corvid
