// Caja and Nemo ask for a widget above each folder that they show, and destroy it when they show
// another: a widget that is never shown tells both.

#include "Extensions/FileManagers/Gtk/Module.h"

#include "FileManager.h"
#include "LocationWidget.h"

#include <gtk/gtk.h>

namespace corvid::gtk {

namespace {

void onDestroy(GtkWidget* /*widget*/, gpointer data) {
    frontEnd().end(*static_cast<const std::string*>(data));
}

GtkWidget* getWidget(LocationWidgetProvider* /*provider*/, const char* uri, GtkWidget* /*window*/) {
    std::string folder = pathOfURI(uri);
    if (folder.empty()) {
        return nullptr;
    }
    frontEnd().begin(folder);
    GtkWidget* const widget = gtk_event_box_new();
    gtk_widget_set_no_show_all(widget, TRUE);
    g_signal_connect_data(
        widget, "destroy", G_CALLBACK(onDestroy), new std::string(std::move(folder)),
        [](gpointer text, GClosure*) { delete static_cast<std::string*>(text); }, GConnectFlags{});
    return widget;
}

void initialise(gpointer interface, gpointer /*data*/) {
    static_cast<LocationWidgetProviderInterface*>(interface)->get_widget = getWidget;
}

} // namespace

void registerObservation(GTypeModule* module, GType type) {
    static const GInterfaceInfo kProvider = {initialise, nullptr, nullptr};
    g_type_module_add_interface(module, type, locationWidgetProviderType(), &kProvider);
    registerName(module, type);
}

} // namespace corvid::gtk
