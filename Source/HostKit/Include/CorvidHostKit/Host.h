#pragma once

#include <CorvidHostKit/Application.h>
#include <CorvidHostKit/Error.h>
#include <CorvidHostKit/Export.h>

#include <chrono>
#include <memory>
#include <string>

namespace corvid::hostkit {

/// Which extensions hear of a pushed badge.
enum class PushTo {
    everyone,
    /// Nobody while no extension shows the folder that the item is in: what is not on the screen
    /// is asked for anyway when it comes there.
    whoShowsTheFolder,
};

/// Serves one folder to the file managers of this user, for as long as it lives.
///
/// There is one host for each user. All members may be called from any thread, and from within
/// the members of Application.
class CORVID_HOSTKIT_API Host {
public:
    /// Opens for questions. `folder` is an existing folder; a relative path is taken from the
    /// current one. Links in it are not resolved: items are known by the names that people see.
    /// The extensions that are open already are served from here on.
    ///
    /// `application` is not owned, must outlive the host, and has one host at a time. Its members
    /// may be called before this constructor returns.
    ///
    /// Throws Error when there is no such folder, when another host serves this user already, and
    /// when an extension was told to watch another folder.
    Host(const std::string& folder, Application& application);

    /// Closes: frees the host's name, waits for a member of Application that runs, and drops the
    /// pushes that are not sent yet. Not from within a member of Application.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// The folder served, absolute.
    const std::string& folder() const;

    /// Hands the badge of the item `path` to the extensions, and returns at once. Each extension
    /// gets the pushes of one item in order; where one is slow, only the newest badge of an item
    /// is kept for it, and it holds up nobody else.
    ///
    /// Throws Error for an unknown badge, and for a path outside the folder. An item whose name
    /// is not UTF-8 cannot be pushed; nothing happens.
    void push(const std::string& path, const std::string& badge, PushTo to = PushTo::everyone);

    /// Waits until what was pushed so far is delivered; false when `timeout` has passed before.
    /// Not from within a member of Application.
    bool flush(std::chrono::milliseconds timeout);

    /// True while some extension shows the folder `path`.
    bool isShown(const std::string& path) const;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace corvid::hostkit
