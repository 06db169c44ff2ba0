#pragma once

#include <glib.h>

#include <memory>

namespace corvid::gtk {

struct FreeGLib {
    void operator()(char* text) const { g_free(text); }
};
/// A text of GLib's.
using GText = std::unique_ptr<char, FreeGLib>;

} // namespace corvid::gtk
