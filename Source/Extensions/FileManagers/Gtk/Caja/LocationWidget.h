#pragma once

#include <libcaja-extension/caja-location-widget-provider.h>

namespace corvid::gtk {

using LocationWidgetProvider = CajaLocationWidgetProvider;
using LocationWidgetProviderInterface = CajaLocationWidgetProviderIface;

inline GType locationWidgetProviderType() {
    return CAJA_TYPE_LOCATION_WIDGET_PROVIDER;
}
/// Caja lists extensions by their files.
inline void registerName(GTypeModule* /*module*/, GType /*type*/) {}

} // namespace corvid::gtk
