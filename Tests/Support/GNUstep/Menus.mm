#import <AppKit/AppKit.h>

#import <objc/runtime.h>

#include "Platform/Mac/Retained.h"

#include <map>
#include <mutex>

// Makes the menus of GNUstep 0.29 usable without an application object and a display, and gives
// their items what Apple's have and they lack: to be hidden, and a title with attributes, of which
// they keep the bare text only.

namespace {

id noWindow(id /*self*/, SEL /*command*/) {
    return nil;
}

id noView(id self, SEL /*command*/, NSRect /*frame*/) {
    [self dealloc];
    return nil;
}

id noRepresentation(id /*self*/, SEL /*command*/, id /*representation*/) {
    return nil;
}

struct Extras {
    bool isHidden = false;
    corvid::Retained<NSAttributedString> attributedTitle;
};

std::mutex extrasMutex;
std::map<const void*, Extras> extrasOfItems;
IMP deallocWithoutExtras = nullptr;

Extras extrasOf(id item) {
    const std::lock_guard lock(extrasMutex);
    const auto found = extrasOfItems.find(item);
    return found != extrasOfItems.end() ? found->second : Extras();
}

id setAttributedTitle(id self, SEL /*command*/, NSAttributedString* title) {
    const std::lock_guard lock(extrasMutex);
    extrasOfItems[self].attributedTitle = corvid::Retained<NSAttributedString>::share(title);
    return nil;
}

id attributedTitle(id self, SEL /*command*/) {
    return extrasOf(self).attributedTitle.autoreleased();
}

id deallocWithExtras(id self, SEL command) {
    {
        const std::lock_guard lock(extrasMutex);
        extrasOfItems.erase(self);
    }
    return deallocWithoutExtras(self, command);
}

template <class Function>
IMP replace(const char* className, const char* selector, Function replacement) {
    Method method = class_getInstanceMethod(objc_getClass(className), sel_registerName(selector));
    return method_setImplementation(method, reinterpret_cast<IMP>(replacement));
}

__attribute__((constructor)) void changeMenus() {
    replace("NSMenu", "_createWindow", noWindow);
    replace("NSMenu", "setMenuRepresentation:", noRepresentation);
    replace("NSMenuView", "initWithFrame:", noView);
    replace("NSMenuItem", "setAttributedTitle:", setAttributedTitle);
    replace("NSMenuItem", "attributedTitle", attributedTitle);
    deallocWithoutExtras = replace("NSMenuItem", "dealloc", deallocWithExtras);
}

} // namespace

@implementation NSMenuItem (CorvidAdditions)

- (void)setHidden:(BOOL)hidden {
    const std::lock_guard lock(extrasMutex);
    extrasOfItems[self].isHidden = hidden;
}

- (BOOL)isHidden {
    return extrasOf(self).isHidden;
}

@end
