#pragma once

#include <libcaja-extension/caja-location-widget-provider.h>

namespace corvid::gtk {

/// Caja lists extensions by their files.
inline void registerName(GTypeModule* /*module*/, GType /*type*/) {}

} // namespace corvid::gtk
