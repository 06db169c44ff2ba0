#import "Extensions/Finder/Mac/CVMAFinderSync.h"

#include "Extensions/Finder/CVMAFinderSync.h"
#include "Extensions/Finder/Mac/ExtensionProcess.h"
#include "Platform/Mac/AppKitMenu.h"
#include "Platform/Mac/FoundationValues.h"

#include <memory>
#include <optional>

struct CVMAFinderSyncState {
    std::shared_ptr<corvid::CVMAFinderSync> controller;
};

@implementation CVMAFinderSync

- (instancetype)init {
    self = [super init];
    if (self != nil) {
        corvid::wireExtensionProcess();
        _state = new CVMAFinderSyncState{corvid::CVMAFinderSync::create()};
    }
    return self;
}

- (void)dealloc {
    if (_state != nullptr) {
        // Done before the superclass's end, also when this is called from within a push.
        _state->controller->end();
        delete _state;
    }
#if !__has_feature(objc_arc)
    [super dealloc];
#endif
}

- (void)beginObservingDirectoryAtURL:(NSURL*)url {
    if (const std::optional<corvid::URL> folder = corvid::portableURL(url)) {
        _state->controller->beginObservingDirectory(*folder);
    }
}

- (void)endObservingDirectoryAtURL:(NSURL*)url {
    if (const std::optional<corvid::URL> folder = corvid::portableURL(url)) {
        _state->controller->endObservingDirectory(*folder);
    }
}

- (void)requestBadgeIdentifierForURL:(NSURL*)url {
    if (const std::optional<corvid::URL> item = corvid::portableURL(url)) {
        _state->controller->requestBadgeIdentifier(*item);
    }
}

- (NSMenu*)menuForMenuKind:(FIMenuKind)menu {
    const std::shared_ptr<corvid::Menu> made =
        _state->controller->menu(static_cast<corvid::FIMenuKind>(menu));
    return corvid::appKitMenu(*made, _state->controller.get(), self);
}

- (void)performAction:(id)sender {
    // What to do with a sender that is no menu item is for the controller to say.
    std::shared_ptr<corvid::Object> portable = std::make_shared<corvid::Object>();
    if ([sender isKindOfClass:[NSMenuItem class]]) {
        portable = corvid::portableMenuItem(sender, _state->controller->menuIcon());
    }
    _state->controller->performAction(portable);
}

@end
