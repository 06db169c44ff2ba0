#pragma once

#import <AppKit/AppKit.h>

#include "Core/Archive/Menu.h"

#include <memory>

// Conversions between the portable menus and those of AppKit. Nothing is lost either way that an
// NSMenuItem holds: title, attributed title, image, state, tag, key equivalent and mask,
// indentation, tool tip, alternate, hidden, enabled, represented object, submenu, action. Not
// taken over are the pictures of the states, which AppKit draws itself, and a represented object
// of a class that foundationObject() does not make. The thread of the menus.

namespace corvid {

/// A new menu with new items, autoreleased. An item whose target is `controller` gets `shell` as
/// its target, which stands for that controller in front of AppKit and is not retained by the
/// items; any other item gets none.
NSMenu* appKitMenu(const Menu& menu, const Object* controller, id shell);

/// A portable item with all that `item` holds but its target. Its action is copied as it stands.
/// A picture that is the one of `menuIcon` (null for none) is given as that; any other is kept for
/// the archive.
std::shared_ptr<MenuItem> portableMenuItem(NSMenuItem* item,
                                           const std::shared_ptr<Image>& menuIcon);

} // namespace corvid
