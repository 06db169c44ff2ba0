#pragma once

// What the module calls the things of Nautilus. Each file manager has a header of this name; the
// build picks the folder, and the module's source knows none of them by name.

// Its header declares the entry points for C alone.
extern "C" {
#include <nautilus-extension.h>
}

namespace corvid::gtk {

using FileInfo = NautilusFileInfo;
using MenuEntryObject = NautilusMenuItem;
using MenuObject = NautilusMenu;
using InfoProvider = NautilusInfoProvider;
using InfoProviderInterface = NautilusInfoProviderInterface;
using MenuProvider = NautilusMenuProvider;
using MenuProviderInterface = NautilusMenuProviderInterface;
using OperationHandle = NautilusOperationHandle;
using OperationResult = NautilusOperationResult;

inline constexpr const char* kFrontEndName = "Nautilus";
inline constexpr OperationResult kOperationComplete = NAUTILUS_OPERATION_COMPLETE;

inline GType infoProviderType() {
    return NAUTILUS_TYPE_INFO_PROVIDER;
}
inline GType menuProviderType() {
    return NAUTILUS_TYPE_MENU_PROVIDER;
}
inline GFile* fileLocation(FileInfo* file) {
    return nautilus_file_info_get_location(file);
}
inline bool fileIsFolder(FileInfo* file) {
    return nautilus_file_info_is_directory(file) != FALSE;
}
inline void fileAddEmblem(FileInfo* file, const char* emblem) {
    nautilus_file_info_add_emblem(file, emblem);
}
inline void fileInvalidate(FileInfo* file) {
    nautilus_file_info_invalidate_extension_info(file);
}
inline FileInfo* fileLookUp(GFile* location) {
    return nautilus_file_info_lookup(location);
}
inline MenuEntryObject* menuEntryNew(const char* name, const char* label, const char* tip,
                                     const char* icon) {
    return nautilus_menu_item_new(name, label, tip, icon);
}
inline void menuEntrySetSubmenu(MenuEntryObject* entry, MenuObject* submenu) {
    nautilus_menu_item_set_submenu(entry, submenu);
}
inline MenuObject* menuNew() {
    return nautilus_menu_new();
}
inline void menuAppend(MenuObject* menu, MenuEntryObject* entry) {
    nautilus_menu_append_item(menu, entry);
}
inline void menusChanged(MenuProvider* provider) {
    nautilus_menu_provider_emit_items_updated_signal(provider);
}

} // namespace corvid::gtk

// The entry points that the file manager looks up by name.
#define CORVID_MODULE_INITIALIZE nautilus_module_initialize
#define CORVID_MODULE_SHUTDOWN nautilus_module_shutdown
#define CORVID_MODULE_LIST_TYPES nautilus_module_list_types
