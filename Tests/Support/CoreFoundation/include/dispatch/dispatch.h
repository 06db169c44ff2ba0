#pragma once

// As CoreFoundation.h beside it: the calls of libdispatch that the sources for macOS make.
// https://developer.apple.com/documentation/dispatch

extern "C" {

using dispatch_queue_t = struct dispatch_queue_s*;
using dispatch_queue_attr_t = struct dispatch_queue_attr_s*;
using dispatch_function_t = void (*)(void* context);

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attributes);
void dispatch_release(dispatch_queue_t queue);
void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* context,
                                 dispatch_function_t destructor);
void* dispatch_get_specific(const void* key);
}
