#pragma once

// How Caja calls what FileManager.h is made of. Each file manager has a header of this name; the
// build picks the folder.

#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-menu-provider.h>

#define CORVID_FRONT_END_NAME "Caja"
#define CORVID_TYPE(name) Caja##name
#define CORVID_INTERFACE(name) Caja##name##Iface
#define CORVID_CONSTANT(name) CAJA_##name
#define CORVID_FUNCTION(name) caja_##name
#define CORVID_BADGES_BEFORE_DRAWING
