#pragma once

// What the module calls the things of its file manager. Caja, Nemo and Nautilus have one interface
// under three prefixes, which Names.h adds; the module's source knows none of them.

#include "Names.h"

namespace corvid::gtk {

using FileInfo = CORVID_TYPE(FileInfo);
using MenuEntryObject = CORVID_TYPE(MenuItem);
using MenuObject = CORVID_TYPE(Menu);
using InfoProvider = CORVID_TYPE(InfoProvider);
using InfoProviderInterface = CORVID_INTERFACE(InfoProvider);
using MenuProvider = CORVID_TYPE(MenuProvider);
using MenuProviderInterface = CORVID_INTERFACE(MenuProvider);
using OperationHandle = CORVID_TYPE(OperationHandle);
using OperationResult = CORVID_TYPE(OperationResult);

inline constexpr const char* kFrontEndName = CORVID_FRONT_END_NAME;
inline constexpr OperationResult kOperationComplete = CORVID_CONSTANT(OPERATION_COMPLETE);

inline GType infoProviderType() {
    return CORVID_CONSTANT(TYPE_INFO_PROVIDER);
}
inline GType menuProviderType() {
    return CORVID_CONSTANT(TYPE_MENU_PROVIDER);
}
inline GFile* fileLocation(FileInfo* file) {
    return CORVID_FUNCTION(file_info_get_location)(file);
}
/// Null for what has no folder. The folder's own: its items have one in common.
inline GFile* fileParentLocation(FileInfo* file) {
    return CORVID_FUNCTION(file_info_get_parent_location)(file);
}
inline bool fileIsFolder(FileInfo* file) {
    return CORVID_FUNCTION(file_info_is_directory)(file) != FALSE;
}
inline void fileAddEmblem(FileInfo* file, const char* emblem) {
    CORVID_FUNCTION(file_info_add_emblem)(file, emblem);
}
inline void fileInvalidate(FileInfo* file) {
    CORVID_FUNCTION(file_info_invalidate_extension_info)(file);
}
/// Null for a file that the file manager does not hold.
inline FileInfo* fileLookUp(GFile* location) {
    return CORVID_FUNCTION(file_info_lookup)(location);
}
inline MenuEntryObject* menuEntryNew(const char* name, const char* label, const char* tip,
                                     const char* icon) {
    return CORVID_FUNCTION(menu_item_new)(name, label, tip, icon);
}
/// A line where the file manager has them, else an entry that looks like one.
inline MenuEntryObject* menuSeparatorNew(const char* name) {
#ifdef CORVID_NEW_SEPARATOR
    return CORVID_NEW_SEPARATOR(name);
#else
    MenuEntryObject* const entry = menuEntryNew(name, "────────", "", nullptr);
    g_object_set(entry, "sensitive", FALSE, nullptr);
    return entry;
#endif
}
inline void menuEntrySetSubmenu(MenuEntryObject* entry, MenuObject* submenu) {
    CORVID_FUNCTION(menu_item_set_submenu)(entry, submenu);
}
inline MenuObject* menuNew() {
    return CORVID_FUNCTION(menu_new)();
}
inline void menuAppend(MenuObject* menu, MenuEntryObject* entry) {
    CORVID_FUNCTION(menu_append_item)(menu, entry);
}
inline void menusChanged(MenuProvider* provider) {
    CORVID_FUNCTION(menu_provider_emit_items_updated_signal)(provider);
}

} // namespace corvid::gtk
