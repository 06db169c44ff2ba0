#pragma once

#include <libnemo-extension/nemo-location-widget-provider.h>
#include <libnemo-extension/nemo-name-and-desc-provider.h>

namespace corvid::gtk {

/// Nemo lists extensions by what they say of themselves.
inline void registerName(GTypeModule* module, GType type) {
    static const GInterfaceInfo kProvider = {
        [](gpointer interface, gpointer) {
            static_cast<NemoNameAndDescProviderInterface*>(interface)->get_name_and_desc =
                [](NemoNameAndDescProvider*) {
                    return g_list_append(
                        nullptr, g_strdup("Corvid:::Badges and menus of a synced volume:::"));
                };
        },
        nullptr, nullptr};
    g_type_module_add_interface(module, type, NEMO_TYPE_NAME_AND_DESC_PROVIDER, &kProvider);
}

} // namespace corvid::gtk
