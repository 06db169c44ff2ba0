#pragma once

// What the module calls the things of Caja. Each file manager has a header of this name; the
// build picks the folder, and the module's source knows none of them by name.

#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-menu-provider.h>

namespace corvid::gtk {

using FileInfo = CajaFileInfo;
using MenuEntryObject = CajaMenuItem;
using MenuObject = CajaMenu;
using InfoProvider = CajaInfoProvider;
using InfoProviderInterface = CajaInfoProviderIface;
using MenuProvider = CajaMenuProvider;
using MenuProviderInterface = CajaMenuProviderIface;
using OperationHandle = CajaOperationHandle;
using OperationResult = CajaOperationResult;

inline constexpr const char* kFrontEndName = "Caja";
inline constexpr OperationResult kOperationComplete = CAJA_OPERATION_COMPLETE;

inline GType infoProviderType() {
    return CAJA_TYPE_INFO_PROVIDER;
}
inline GType menuProviderType() {
    return CAJA_TYPE_MENU_PROVIDER;
}
inline GFile* fileLocation(FileInfo* file) {
    return caja_file_info_get_location(file);
}
inline bool fileIsFolder(FileInfo* file) {
    return caja_file_info_is_directory(file) != FALSE;
}
inline void fileAddEmblem(FileInfo* file, const char* emblem) {
    caja_file_info_add_emblem(file, emblem);
}
inline void fileInvalidate(FileInfo* file) {
    caja_file_info_invalidate_extension_info(file);
}
inline FileInfo* fileLookUp(GFile* location) {
    return caja_file_info_lookup(location);
}
inline MenuEntryObject* menuEntryNew(const char* name, const char* label, const char* tip,
                                     const char* icon) {
    return caja_menu_item_new(name, label, tip, icon);
}
inline void menuEntrySetSubmenu(MenuEntryObject* entry, MenuObject* submenu) {
    caja_menu_item_set_submenu(entry, submenu);
}
inline MenuObject* menuNew() {
    return caja_menu_new();
}
inline void menuAppend(MenuObject* menu, MenuEntryObject* entry) {
    caja_menu_append_item(menu, entry);
}
inline void menusChanged(MenuProvider* provider) {
    caja_menu_provider_emit_items_updated_signal(provider);
}

} // namespace corvid::gtk

// The entry points that the file manager looks up by name.
#define CORVID_MODULE_INITIALIZE caja_module_initialize
#define CORVID_MODULE_SHUTDOWN caja_module_shutdown
#define CORVID_MODULE_LIST_TYPES caja_module_list_types
