// A module for Caja that has everything ready: the badge "synced" for each item and, for each
// selection, a menu of 5,000 entries. What Caja needs with it is its own.

#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-menu-provider.h>

#include <string>

namespace {

constexpr int kEntries = 5000;

GType type = 0;

CajaOperationResult updateFileInfo(CajaInfoProvider* /*provider*/, CajaFileInfo* file,
                                   GClosure* /*done*/, CajaOperationHandle** /*handle*/) {
    caja_file_info_add_emblem(file, "corvid-synced");
    return CAJA_OPERATION_COMPLETE;
}

void onActivate(CajaMenuItem* /*item*/, gpointer /*data*/) {}

GList* getFileItems(CajaMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
    if (files == nullptr) {
        return nullptr;
    }
    CajaMenu* const menu = caja_menu_new();
    for (int i = 0; i < kEntries; ++i) {
        const std::string number = std::to_string(i);
        CajaMenuItem* const item = caja_menu_item_new(
            ("Ready::" + number).c_str(), ("Entry " + number).c_str(), "", "MorrowFilesAppIcon");
        g_signal_connect(item, "activate", G_CALLBACK(onActivate), nullptr);
        caja_menu_append_item(menu, item);
        g_object_unref(item);
    }
    CajaMenuItem* const top = caja_menu_item_new("Ready::Top", "Ready", "", "MorrowFilesAppIcon");
    caja_menu_item_set_submenu(top, menu);
    g_object_unref(menu);
    return g_list_append(nullptr, top);
}

} // namespace

#define CORVID_EXPORT extern "C" __attribute__((visibility("default")))

CORVID_EXPORT void caja_module_initialize(GTypeModule* module) {
    static const GTypeInfo kInfo = {
        sizeof(GObjectClass), nullptr, nullptr, nullptr, nullptr, nullptr,
        sizeof(GObject),      0,       nullptr, nullptr};
    type = g_type_module_register_type(module, G_TYPE_OBJECT, "ReadyModule", &kInfo, GTypeFlags{});
    static const GInterfaceInfo kInfoProvider = {
        [](gpointer interface, gpointer) {
            static_cast<CajaInfoProviderIface*>(interface)->update_file_info = updateFileInfo;
        },
        nullptr, nullptr};
    g_type_module_add_interface(module, type, CAJA_TYPE_INFO_PROVIDER, &kInfoProvider);
    static const GInterfaceInfo kMenuProvider = {
        [](gpointer interface, gpointer) {
            static_cast<CajaMenuProviderIface*>(interface)->get_file_items = getFileItems;
        },
        nullptr, nullptr};
    g_type_module_add_interface(module, type, CAJA_TYPE_MENU_PROVIDER, &kMenuProvider);
}

CORVID_EXPORT void caja_module_shutdown() {}

CORVID_EXPORT void caja_module_list_types(const GType** types, int* count) {
    *types = &type;
    *count = 1;
}
