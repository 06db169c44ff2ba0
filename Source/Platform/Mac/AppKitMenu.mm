#import "Platform/Mac/AppKitMenu.h"

#include "Core/Archive/OpaqueObject.h"
#include "Platform/Mac/FoundationValues.h"
#include "Platform/Mac/MacImage.h"
#include "Platform/Mac/Retained.h"

#include <algorithm>
#include <string_view>

namespace corvid {

namespace {

// What these keep is kept opaque in a portable item, under the archive's own names.
constexpr std::string_view kAttributedTitleKey = "NSAttributedTitle";
constexpr std::string_view kImageKey = "NSImage";
constexpr std::string_view kRepresentedObjectKey = "NSRepObject";

// -[NSMenuItem setIndentationLevel:] raises below and clamps above.
constexpr std::int64_t kMaximumIndentation = 15;

/// Nil when the item has no such key, or when what it holds is of another class.
id archivedObject(const MenuItem& item, std::string_view key, Class expected) {
    const Value* value = referencedValue(findSlot(item.otherFields, key));
    id object = value != nullptr ? foundationObject(*value) : nil;
    return [object isKindOfClass:expected] ? object : nil;
}

void keepArchived(MenuItem& item, std::string_view key, id object) {
    Value value = portableValue(object);
    if (!value.isNull()) {
        item.otherFields = fieldsWith(item.otherFields, std::string(key), std::move(value));
    }
}

Retained<NSMenuItem> emptyItem(const MenuItem& item) {
    if (item.isSeparator) {
        id separator = [NSMenuItem separatorItem];
        return Retained<NSMenuItem>::share(separator);
    }
    return Retained<NSMenuItem>::adopt([[NSMenuItem alloc]
        initWithTitle:foundationString(item.title)
               action:NULL
        keyEquivalent:foundationString(item.keyEquivalent)]);
}

Retained<NSMenuItem> appKitItem(const MenuItem& item, const Object* controller, id shell) {
    Retained<NSMenuItem> owner = emptyItem(item);
    NSMenuItem* made = owner.get();
    [made setKeyEquivalentModifierMask:static_cast<NSUInteger>(item.keyEquivalentModifierMask)];
    [made setTag:static_cast<NSInteger>(item.tag)];
    [made setState:static_cast<NSInteger>(item.state)];
    [made setIndentationLevel:static_cast<NSInteger>(std::clamp<std::int64_t>(
                                  item.indentationLevel, 0, kMaximumIndentation))];
    [made setEnabled:item.isEnabled];
    [made setHidden:item.isHidden];
    [made setAlternate:item.isAlternate];
    if (item.toolTip) {
        [made setToolTip:foundationString(*item.toolTip)];
    }
    if (id title = archivedObject(item, kAttributedTitleKey, [NSAttributedString class])) {
        [made setAttributedTitle:title];
    }
    [made setRepresentedObject:archivedObject(item, kRepresentedObjectKey, [NSObject class])];
    [made setImage:item.image != nullptr ? appKitImage(item.image)
                                         : archivedObject(item, kImageKey, [NSImage class])];
    if (item.submenu != nullptr) {
        NSMenu* submenu = appKitMenu(*item.submenu, controller, shell);
        [made setSubmenu:submenu];
        // Again, because the item may have given it its own.
        [submenu setTitle:foundationString(item.submenu->title)];
    }
    return owner;
}

} // namespace

NSMenu* appKitMenu(const Menu& menu, const Object* controller, id shell) {
    const auto owner =
        Retained<NSMenu>::adopt([[NSMenu alloc] initWithTitle:foundationString(menu.title)]);
    // Not while it is built, else an item would be disabled for want of a target.
    [owner.get() setAutoenablesItems:NO];
    for (const std::shared_ptr<MenuItem>& item : menu.items) {
        const Retained<NSMenuItem> made = appKitItem(*item, controller, shell);
        [owner.get() addItem:made.get()];
        // Last, because giving an item a submenu or a menu may set both.
        if (item->action) {
            [made.get() setAction:NSSelectorFromString(foundationString(item->action->name))];
        }
        if (controller != nullptr && item->target.lock().get() == controller) {
            [made.get() setTarget:shell];
        }
    }
    [owner.get() setAutoenablesItems:menu.autoenablesItems];
    return owner.autoreleased();
}

namespace {

std::shared_ptr<Menu> portableMenu(NSMenu* menu, const std::shared_ptr<Image>& menuIcon) {
    auto copy = std::make_shared<Menu>();
    copy->title = utf8String([menu title]);
    copy->autoenablesItems = [menu autoenablesItems];
    for (NSMenuItem* item in [menu itemArray]) {
        copy->add(portableMenuItem(item, menuIcon));
    }
    return copy;
}

} // namespace

std::shared_ptr<MenuItem> portableMenuItem(NSMenuItem* item,
                                           const std::shared_ptr<Image>& menuIcon) {
    auto copy = std::make_shared<MenuItem>();
    copy->isSeparator = [item isSeparatorItem];
    if (!copy->isSeparator) {
        copy->title = utf8String([item title]);
    }
    copy->keyEquivalent = utf8String([item keyEquivalent]);
    copy->keyEquivalentModifierMask = [item keyEquivalentModifierMask];
    copy->tag = [item tag];
    copy->state = static_cast<MenuItemState>([item state]);
    copy->indentationLevel = [item indentationLevel];
    copy->isEnabled = [item isEnabled];
    copy->isHidden = [item isHidden];
    copy->isAlternate = [item isAlternate];
    if (NSString* toolTip = [item toolTip]) {
        copy->toolTip = utf8String(toolTip);
    }
    if ([item action] != NULL) {
        copy->action = Selector{utf8String(NSStringFromSelector([item action]))};
    }
    if ([item image] != nil && [item image] == appKitImage(menuIcon)) {
        copy->image = menuIcon;
    } else {
        keepArchived(*copy, kImageKey, [item image]);
    }
    keepArchived(*copy, kAttributedTitleKey, [item attributedTitle]);
    keepArchived(*copy, kRepresentedObjectKey, [item representedObject]);
    if ([item submenu] != nil) {
        copy->submenu = portableMenu([item submenu], menuIcon);
    }
    return copy;
}

} // namespace corvid
