// Caja and Nemo ask for a widget above each folder that they show, and destroy it when they show
// another: a widget that is never shown tells both.

#include "Extensions/FileManagers/Gtk/Module.h"

#include "Extensions/FileManagers/Gtk/FileManager.h"
#include "LocationWidget.h"

#include <gtk/gtk.h>

namespace corvid::gtk {

namespace {

using LocationWidgetProvider = CORVID_TYPE(LocationWidgetProvider);
using LocationWidgetProviderInterface = CORVID_INTERFACE(LocationWidgetProvider);

void onDestroy(GtkWidget* /*widget*/, gpointer data) {
    frontEnd().end(*static_cast<const std::string*>(data));
}

/// Hides what is around the box of such widgets while nothing is to be seen in it.
void hideIfEmpty(GtkWidget* frame, gpointer widget) {
    GtkWidget* const box = gtk_widget_get_parent(static_cast<GtkWidget*>(widget));
    if (box == nullptr) {
        return;
    }
    GList* const children = gtk_container_get_children(GTK_CONTAINER(box));
    bool isEmpty = true;
    for (const GList* child = children; child != nullptr; child = child->next) {
        isEmpty = isEmpty && gtk_widget_get_visible(static_cast<GtkWidget*>(child->data)) == FALSE;
    }
    g_list_free(children);
    if (isEmpty) {
        gtk_widget_hide(frame);
    }
}

/// The file manager shows a frame around the box that it has put the widget in. It would be a thin
/// empty bar.
void onParent(GtkWidget* widget, GtkWidget* /*previous*/, gpointer /*data*/) {
    GtkWidget* const box = gtk_widget_get_parent(widget);
    if (box == nullptr) {
        return;
    }
    GtkWidget* frame = box;
    while (GTK_IS_BIN(gtk_widget_get_parent(frame))) {
        frame = gtk_widget_get_parent(frame);
    }
    g_signal_connect_object(frame, "show", G_CALLBACK(hideIfEmpty), widget, G_CONNECT_AFTER);
}

GtkWidget* getWidget(LocationWidgetProvider* /*provider*/, const char* uri, GtkWidget* /*window*/) {
    std::string folder = pathOfURI(uri);
    if (folder.empty()) {
        return nullptr;
    }
    frontEnd().begin(folder);
    GtkWidget* const widget = gtk_event_box_new();
    gtk_widget_set_no_show_all(widget, TRUE);
    g_signal_connect(widget, "parent-set", G_CALLBACK(onParent), nullptr);
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
    g_type_module_add_interface(module, type, CORVID_CONSTANT(TYPE_LOCATION_WIDGET_PROVIDER),
                                &kProvider);
    registerName(module, type);
}

bool isOpeningMenu() {
    GdkEvent* const event = gtk_get_current_event();
    if (event == nullptr) {
        return false;
    }
    const GdkEventType type = gdk_event_get_event_type(event);
    gdk_event_free(event);
    return type == GDK_BUTTON_PRESS || type == GDK_KEY_PRESS;
}

} // namespace corvid::gtk
