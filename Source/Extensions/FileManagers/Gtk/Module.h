#pragma once

#include "Extensions/FileManagers/Gtk/FrontEnd.h"

#include <glib-object.h>

#include <string>

namespace corvid::gtk {

/// The one front end of this process, made and connected at the first call: file managers load
/// modules in helper processes too, which never ask for anything. Main thread.
FrontEnd& frontEnd();

/// The absolute path without a "/" at the end that `uri` names; empty when it names no local file.
std::string pathOfURI(const char* uri);

/// Begins to watch which folders come into view. Each file manager has its own way; the build picks
/// the file. Called once, when the module is loaded, with its type.
void registerObservation(GTypeModule* module, GType type);

/// Whether the menu that is being asked for comes on the screen now. The build picks the file.
bool isOpeningMenu();

} // namespace corvid::gtk
