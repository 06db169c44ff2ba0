// A module that has everything ready: the badge "synced" for each item and, for each selection, a
// menu of 5,000 entries. What a file manager needs with it is its own.

#include "Extensions/FileManagers/Gtk/FileManager.h"

#include <string>

namespace corvid::gtk {

namespace {

constexpr int kEntries = 5000;
constexpr const char* kIcon = "MorrowFilesAppIcon";

GType readyType = 0;

OperationResult updateFileInfo(InfoProvider* /*provider*/, FileInfo* file, GClosure* /*done*/,
                               OperationHandle** /*handle*/) {
    fileAddEmblem(file, "corvid-synced");
    return kOperationComplete;
}

void onActivate(MenuEntryObject* /*entry*/, gpointer /*data*/) {}

GList* getFileItems(MenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
    if (files == nullptr) {
        return nullptr;
    }
    MenuObject* const menu = menuNew();
    for (int i = 0; i < kEntries; ++i) {
        const std::string number = std::to_string(i);
        MenuEntryObject* const entry =
            menuEntryNew(("Ready::" + number).c_str(), ("Entry " + number).c_str(), "", kIcon);
        g_signal_connect(entry, "activate", G_CALLBACK(onActivate), nullptr);
        menuAppend(menu, entry);
        g_object_unref(entry);
    }
    MenuEntryObject* const top = menuEntryNew("Ready::Top", "Ready", "", kIcon);
    menuEntrySetSubmenu(top, menu);
    g_object_unref(menu);
    return g_list_append(nullptr, top);
}

void registerModule(GTypeModule* module) {
    static const GTypeInfo kInfo = {
        sizeof(GObjectClass), nullptr, nullptr, nullptr, nullptr, nullptr,
        sizeof(GObject),      0,       nullptr, nullptr};
    readyType =
        g_type_module_register_type(module, G_TYPE_OBJECT, "ReadyModule", &kInfo, GTypeFlags{});
    static const GInterfaceInfo kInfoProvider = {
        [](gpointer interface, gpointer) {
            static_cast<InfoProviderInterface*>(interface)->update_file_info = updateFileInfo;
        },
        nullptr, nullptr};
    g_type_module_add_interface(module, readyType, infoProviderType(), &kInfoProvider);
    static const GInterfaceInfo kMenuProvider = {
        [](gpointer interface, gpointer) {
            static_cast<MenuProviderInterface*>(interface)->get_file_items = getFileItems;
        },
        nullptr, nullptr};
    g_type_module_add_interface(module, readyType, menuProviderType(), &kMenuProvider);
}

} // namespace

} // namespace corvid::gtk

#define CORVID_EXPORT extern "C" __attribute__((visibility("default")))

CORVID_EXPORT void CORVID_FUNCTION(module_initialize)(GTypeModule* module) {
    corvid::gtk::registerModule(module);
}

CORVID_EXPORT void CORVID_FUNCTION(module_shutdown)() {}

CORVID_EXPORT void CORVID_FUNCTION(module_list_types)(const GType** types, int* count) {
    *types = &corvid::gtk::readyType;
    *count = 1;
}
