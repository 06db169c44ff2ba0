// For tests and script/try-in: loaded before a file manager's own libraries (LD_PRELOAD), has it
// take its modules from a folder of the build, and no others. CORVID_TRIAL_OWN is the folder where
// it would look, CORVID_TRIAL_MODULES the one where it looks instead.
//
// With CORVID_TRIAL_PROBE=FILE it keeps watch over the main loop and leaves in FILE, which is
// mapped, what Probe.cpp says.

#include "Extensions/FileManagers/Gtk/Trial/Next.h"
#include "Extensions/FileManagers/Gtk/Trial/Probe.h"

#include <glib.h>
#include <gmodule.h>

#include <cstdlib>
#include <string>

using corvid::gtk::next;

namespace {

/// `path` with the file manager's own folder of modules replaced.
std::string redirected(const char* path) {
    const char* const own = std::getenv("CORVID_TRIAL_OWN");
    const char* const modules = std::getenv("CORVID_TRIAL_MODULES");
    std::string text = path;
    if (own != nullptr && modules != nullptr && text.starts_with(own)) {
        text.replace(0, std::string(own).size(), modules);
    }
    return text;
}

/// With CORVID_TRIAL_ALONE what the file manager starts has nothing loaded before its own
/// libraries: programs of a sanitizer's build bring its runtime along and would have two.
__attribute__((constructor)) void leaveChildrenAlone() {
    if (std::getenv("CORVID_TRIAL_ALONE") != nullptr) {
        unsetenv("LD_PRELOAD");
    }
}

} // namespace

CORVID_EXPORT GDir* g_dir_open(const gchar* path, guint flags, GError** error) {
    const std::string folder = redirected(path);
    // The main loop is about to begin.
    if (const char* const probe = std::getenv("CORVID_TRIAL_PROBE");
        probe != nullptr && folder != path) {
        corvid::gtk::watchMainLoop(probe);
    }
    return next<decltype(&g_dir_open)>("g_dir_open")(folder.c_str(), flags, error);
}

CORVID_EXPORT GModule* g_module_open(const gchar* name, GModuleFlags flags) {
    const auto open = next<decltype(&g_module_open)>("g_module_open");
    if (name == nullptr) {
        return open(nullptr, flags);
    }
    return open(redirected(name).c_str(), flags);
}
