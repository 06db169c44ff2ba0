#pragma once

#include <CorvidHostKit/Export.h>
#include <CorvidHostKit/MenuItem.h>

#include <cstdint>
#include <string>
#include <vector>

namespace corvid::hostkit {

class Host;

/// An entry that somebody chose.
struct Click {
    std::string action; ///< as in MenuItem
    std::string title;  ///< as it was shown
    /// The number by which the extension knows the action: always the same for the same name.
    std::int64_t tag = 0;
    /// The selected items, in the file manager's order.
    std::vector<std::string> paths;
};

/// What a sync client tells the file manager: implement the two questions, and those of the
/// notifications that matter.
///
/// All paths are absolute paths of the real folder that Host was given, in bytes, without a "/" at
/// the end. All members are called on one thread of the library, one at a time. A file manager
/// waits one second for an answer and then goes on without it (the cloud badge, an empty menu), so
/// long work, the work of a click above all, belongs on another thread.
///
/// An exception that leaves a member is taken as a problem(): the question stays unanswered.
class CORVID_HOSTKIT_API Application {
public:
    virtual ~Application();

    /// The badge of one item: "cloud", "inProgress", "checkedOut", "finishedTransfer", "error",
    /// "accessDenied", "synced", "syncedpartial", or "none". Anything else is not sent, but
    /// reported to problem().
    virtual std::string badge(const std::string& path) = 0;

    /// The menu for the selection `paths`. `operatingOnParent` is true for the menu of the
    /// background of a folder; `paths` is that folder then. A menu that the extension could not
    /// show is not sent, but reported to problem().
    virtual std::vector<MenuItem> menu(const std::vector<std::string>& paths,
                                       bool operatingOnParent) = 0;

    virtual void actionPerformed(const Click& click);

    /// An extension can be pushed to from now on, or no longer: it took its leave, or died.
    virtual void extensionChanged(const std::string& portName, bool isOpen);

    /// The first extension shows the folder; the last one no longer does.
    virtual void folderShown(const std::string& path);
    virtual void folderHidden(const std::string& path);

    /// Something went wrong that nobody is waiting to hear: a line of text with the remedy.
    /// Names in it are as they came, of any bytes: escape what a terminal would act upon. The one
    /// here writes it to standard error, escaped.
    virtual void problem(const std::string& text);

protected:
    /// The host that serves this application, to push with: from the first call of a member until
    /// the host is gone.
    Host& host() const { return *servedBy_; }

private:
    friend class Host;
    Host* servedBy_ = nullptr;
};

} // namespace corvid::hostkit
