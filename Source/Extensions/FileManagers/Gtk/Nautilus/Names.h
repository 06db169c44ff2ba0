#pragma once

// How Nautilus calls what FileManager.h is made of. Each file manager has a header of this name;
// the build picks the folder.

#include <gio/gio.h>

// Its header declares the entry points for C alone.
extern "C" {
#include <nautilus-extension.h>
}

#define CORVID_FRONT_END_NAME "Nautilus"
#define CORVID_TYPE(name) Nautilus##name
#define CORVID_INTERFACE(name) Nautilus##name##Interface
#define CORVID_CONSTANT(name) NAUTILUS_##name
#define CORVID_FUNCTION(name) nautilus_##name
