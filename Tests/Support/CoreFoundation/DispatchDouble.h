#pragma once

#include "Core/Base/Mutex.h"
#include "Platform/Unix/UnixDispatch.h"

#include <dispatch/dispatch.h>
#include <map>

/// A queue of the double of libdispatch: a Unix one. Releasing it waits for what is on it, which
/// libdispatch does not; a test that wants every object released does.
struct dispatch_queue_s {
    explicit dispatch_queue_s(const char* label) : queue(label) {}

    corvid::Mutex mutex;
    std::map<const void*, void*> specific CORVID_GUARDED_BY(mutex);
    corvid::UnixDispatchQueue queue; // last: its thread ends first
};
