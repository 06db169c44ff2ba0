#pragma once

#import <AppKit/AppKit.h>

#include "Platform/Fake/CallLog.h"
#include "Tests/Extensions/Finder/Mac/FinderPlayer.h"

namespace corvid {

/// Plays Finder: finds the principal class by the name in the bundle's property list, and calls it
/// by its selectors alone.
class ShellPlayer final : public FinderPlayer {
public:
    /// Finder's calls go into `calls`, which must outlive it.
    explicit ShellPlayer(CallLog& calls);
    ~ShellPlayer() override;

    void startExtension() override;
    void endExtension() override;
    void beginObserving(const URL& folder) override;
    void endObserving(const URL& folder) override;
    void show(const URL& item) override;
    void select(const std::optional<URL>& targeted,
                const std::optional<std::vector<URL>>& selected) override;
    std::string openMenu(FIMenuKind kind) override;
    void click(const std::vector<std::size_t>& place) override;
    void clickSomethingElse() override;
    void waitForBadges(std::size_t count) override;

    /// The class that the property list names; nil when there is none.
    static Class principalClass();

private:
    void callWithURL(const char* selector, const URL& url);
    std::string describe(NSMenu* menu) const;

    id extension_ = nil; ///< owned
    NSMenu* menu_ = nil; ///< owned
};

} // namespace corvid
