#pragma once

// How Nemo calls what FileManager.h is made of. Each file manager has a header of this name; the
// build picks the folder.

#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-info-provider.h>
#include <libnemo-extension/nemo-menu-provider.h>

#define CORVID_FRONT_END_NAME "Nemo"
#define CORVID_TYPE(name) Nemo##name
#define CORVID_INTERFACE(name) Nemo##name##Interface
#define CORVID_CONSTANT(name) NEMO_##name
#define CORVID_FUNCTION(name) nemo_##name
/// Nemo asks for the badges of a folder when it has loaded all of it, which may take seconds.
#define CORVID_ASKS_LATE
/// Only Nemo has lines between the entries of a module's menu.
#define CORVID_NEW_SEPARATOR nemo_menu_item_new_separator
