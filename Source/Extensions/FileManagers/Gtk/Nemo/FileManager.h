#pragma once

// What the module calls the things of Nemo. Each file manager has a header of this name; the
// build picks the folder, and the module's source knows none of them by name.

#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-info-provider.h>
#include <libnemo-extension/nemo-menu-provider.h>

namespace corvid::gtk {

using FileInfo = NemoFileInfo;
using MenuEntryObject = NemoMenuItem;
using MenuObject = NemoMenu;
using InfoProvider = NemoInfoProvider;
using InfoProviderInterface = NemoInfoProviderInterface;
using MenuProvider = NemoMenuProvider;
using MenuProviderInterface = NemoMenuProviderInterface;
using OperationHandle = NemoOperationHandle;
using OperationResult = NemoOperationResult;

inline constexpr const char* kFrontEndName = "Nemo";
inline constexpr OperationResult kOperationComplete = NEMO_OPERATION_COMPLETE;

inline GType infoProviderType() {
    return NEMO_TYPE_INFO_PROVIDER;
}
inline GType menuProviderType() {
    return NEMO_TYPE_MENU_PROVIDER;
}
inline GFile* fileLocation(FileInfo* file) {
    return nemo_file_info_get_location(file);
}
inline bool fileIsFolder(FileInfo* file) {
    return nemo_file_info_is_directory(file) != FALSE;
}
inline void fileAddEmblem(FileInfo* file, const char* emblem) {
    nemo_file_info_add_emblem(file, emblem);
}
inline void fileInvalidate(FileInfo* file) {
    nemo_file_info_invalidate_extension_info(file);
}
inline FileInfo* fileLookUp(GFile* location) {
    return nemo_file_info_lookup(location);
}
inline MenuEntryObject* menuEntryNew(const char* name, const char* label, const char* tip,
                                     const char* icon) {
    return nemo_menu_item_new(name, label, tip, icon);
}
inline void menuEntrySetSubmenu(MenuEntryObject* entry, MenuObject* submenu) {
    nemo_menu_item_set_submenu(entry, submenu);
}
inline MenuObject* menuNew() {
    return nemo_menu_new();
}
inline void menuAppend(MenuObject* menu, MenuEntryObject* entry) {
    nemo_menu_append_item(menu, entry);
}
inline void menusChanged(MenuProvider* provider) {
    nemo_menu_provider_emit_items_updated_signal(provider);
}

} // namespace corvid::gtk

// The entry points that the file manager looks up by name.
#define CORVID_MODULE_INITIALIZE nemo_module_initialize
#define CORVID_MODULE_SHUTDOWN nemo_module_shutdown
#define CORVID_MODULE_LIST_TYPES nemo_module_list_types
