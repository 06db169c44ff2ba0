// Nautilus has no provider that learns which folders are shown, so this looks: its application
// tells of windows, a window of its slots (tabs), a slot of its location. All of it by name, since
// these types are no public interface; what is missing is left out.

#include "Extensions/FileManagers/Gtk/Module.h"

#include <gio/gio.h>

#include <string>
#include <unordered_map>

namespace corvid::gtk {

namespace {

/// The folder that each slot shows; empty for none.
std::unordered_map<gpointer, std::string>& slots() {
    static std::unordered_map<gpointer, std::string> all;
    return all;
}

void show(std::string& shown, std::string folder) {
    if (shown == folder) {
        return;
    }
    // The new one first, so that a folder that stays in view elsewhere never ends between.
    if (!folder.empty()) {
        frontEnd().begin(folder);
    }
    if (!shown.empty()) {
        frontEnd().end(shown);
    }
    shown = std::move(folder);
}

bool hasSignal(gpointer object, const char* name) {
    return g_signal_lookup(name, G_OBJECT_TYPE(object)) != 0;
}

void onLocation(GObject* slot, GParamSpec* /*property*/, gpointer /*data*/) {
    GFile* location = nullptr;
    g_object_get(slot, "location", &location, nullptr);
    char* const uri = location != nullptr ? g_file_get_uri(location) : nullptr;
    show(slots()[slot], uri != nullptr ? pathOfURI(uri) : std::string());
    g_free(uri);
    g_clear_object(&location);
}

void onSlotGone(gpointer /*data*/, GObject* slot) {
    if (const auto found = slots().find(slot); found != slots().end()) {
        show(found->second, {});
        slots().erase(found);
    }
}

void onSlotAdded(GObject* /*window*/, GObject* slot, gpointer /*data*/) {
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(slot), "location") == nullptr ||
        !slots().try_emplace(slot).second) {
        return;
    }
    g_signal_connect(slot, "notify::location", G_CALLBACK(onLocation), nullptr);
    g_object_weak_ref(slot, onSlotGone, nullptr);
    onLocation(slot, nullptr, nullptr);
}

void onSlotRemoved(GObject* /*window*/, GObject* slot, gpointer /*data*/) {
    if (const auto found = slots().find(slot); found != slots().end()) {
        show(found->second, {});
    }
}

void onWindowAdded(GObject* /*application*/, GObject* window, gpointer /*data*/) {
    if (!hasSignal(window, "slot-added") || !hasSignal(window, "slot-removed")) {
        return;
    }
    g_signal_connect(window, "slot-added", G_CALLBACK(onSlotAdded), nullptr);
    g_signal_connect(window, "slot-removed", G_CALLBACK(onSlotRemoved), nullptr);
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(window), "active-slot") != nullptr) {
        GObject* slot = nullptr;
        g_object_get(window, "active-slot", &slot, nullptr);
        if (slot != nullptr) {
            onSlotAdded(window, slot, nullptr);
            g_object_unref(slot);
        }
    }
}

} // namespace

void registerObservation(GTypeModule* /*module*/, GType /*type*/) {
    GApplication* const application = g_application_get_default();
    if (application != nullptr && hasSignal(application, "window-added")) {
        g_signal_connect(application, "window-added", G_CALLBACK(onWindowAdded), nullptr);
    }
}

/// GTK 4 does not say which event is being handled, but the main loop says what it is at: Nautilus
/// prepares its menus from a timer of its own, without a name, and asks for the one that it opens
/// before that timer ran from GTK's event, whose source has one.
bool isOpeningMenu() {
    GSource* const source = g_main_current_source();
    const char* const name = source != nullptr ? g_source_get_name(source) : nullptr;
    return name != nullptr && (g_str_has_prefix(name, "GDK ") || g_str_has_prefix(name, "[gtk] "));
}

} // namespace corvid::gtk
