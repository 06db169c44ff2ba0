#import "Tests/Extensions/Finder/Mac/ShellPlayer.h"

#include "Platform/Mac/AppKitMenu.h"
#include "Platform/Mac/FoundationValues.h"
#include "Tests/Support/GNUstep/FinderSyncDouble.h"
#include "Tests/Support/ValueText.h"

#include <gtest/gtest.h>

namespace corvid {

namespace {

::FIFinderSyncController* finder() {
    return [::FIFinderSyncController defaultController];
}

} // namespace

Class ShellPlayer::principalClass() {
    NSDictionary* information =
        [NSDictionary dictionaryWithContentsOfFile:foundationString(CORVID_EXTENSION_INFO)];
    return NSClassFromString(
        [[information objectForKey:@"NSExtension"] objectForKey:@"NSExtensionPrincipalClass"]);
}

ShellPlayer::ShellPlayer(CallLog& calls) {
    [finder() reset];
    [finder() mirrorCallsTo:&calls];
}

ShellPlayer::~ShellPlayer() {
    [menu_ release];
    [finder() reset];
}

void ShellPlayer::startExtension() {
    @autoreleasepool {
        extension_ = [[principalClass() alloc] init];
    }
}

void ShellPlayer::endExtension() {
    @autoreleasepool {
        [extension_ release];
        extension_ = nil;
    }
}

void ShellPlayer::callWithURL(const char* selector, const URL& url) {
    @autoreleasepool {
        [extension_ performSelector:sel_registerName(selector) withObject:foundationURL(url)];
    }
}

void ShellPlayer::beginObserving(const URL& folder) {
    callWithURL("beginObservingDirectoryAtURL:", folder);
}

void ShellPlayer::endObserving(const URL& folder) {
    callWithURL("endObservingDirectoryAtURL:", folder);
}

void ShellPlayer::show(const URL& item) {
    callWithURL("requestBadgeIdentifierForURL:", item);
}

void ShellPlayer::select(const std::optional<URL>& targeted,
                         const std::optional<std::vector<URL>>& selected) {
    @autoreleasepool {
        NSMutableArray* items = nil;
        if (selected) {
            items = [NSMutableArray array];
            for (const URL& url : *selected) {
                [items addObject:foundationURL(url)];
            }
        }
        [finder() setTargetedURL:targeted ? foundationURL(*targeted) : nil selectedItemURLs:items];
    }
}

std::string ShellPlayer::describe(NSMenu* menu) const {
    std::string text;
    for (NSMenuItem* item in [menu itemArray]) {
        text += menuItemText(*portableMenuItem(item, nullptr)) +
                ([item target] == extension_ ? " of the extension" : " of nobody") +
                ([item image] != nil ? " with the icon\n" : "\n");
        if ([item submenu] != nil) {
            text += describe([item submenu]);
        }
    }
    return text;
}

std::string ShellPlayer::openMenu(FIMenuKind kind) {
    @autoreleasepool {
        const SEL selector = sel_registerName("menuForMenuKind:");
        using MenuMethod = NSMenu* (*)(id, SEL, NSUInteger);
        const auto method = reinterpret_cast<MenuMethod>(
            reinterpret_cast<void (*)()>([extension_ methodForSelector:selector]));
        [menu_ release];
        menu_ = [method(extension_, selector, static_cast<NSUInteger>(kind)) retain];
        return "menu \"" + utf8String([menu_ title]) + "\"\n" + describe(menu_);
    }
}

void ShellPlayer::click(const std::vector<std::size_t>& place) {
    @autoreleasepool {
        NSMenuItem* item = nil;
        for (const std::size_t index : place) {
            NSMenu* menu = item == nil ? menu_ : [item submenu];
            item = [menu itemAtIndex:static_cast<NSInteger>(index)];
        }
        ASSERT_EQ(utf8String(NSStringFromSelector([item action])), "performAction:");
        [[item target] performSelector:[item action] withObject:item];
    }
}

void ShellPlayer::clickSomethingElse() {
    [extension_ performSelector:sel_registerName("performAction:") withObject:@"no menu item"];
}

void ShellPlayer::waitForBadges(std::size_t count) {
    [finder() waitForBadges:count];
}

} // namespace corvid
