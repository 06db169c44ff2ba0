#pragma once

#include <dlfcn.h>

#define CORVID_EXPORT extern "C" __attribute__((visibility("default")))

namespace corvid::gtk {

/// The function that a preloaded one of the same name hides.
template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace corvid::gtk
