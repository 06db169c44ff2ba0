#pragma once

// The few functions of libdispatch that the macOS platform uses, declared as Apple documents them
// (https://developer.apple.com/documentation/dispatch) and realised in Dispatch.cpp.

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dispatch_queue_s* dispatch_queue_t;
typedef struct dispatch_queue_attr_s* dispatch_queue_attr_t;
typedef void (*dispatch_function_t)(void*);

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attributes);
void dispatch_release(dispatch_queue_t queue);
void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* context,
                                 dispatch_function_t destructor);
void* dispatch_get_specific(const void* key);

#ifdef __cplusplus
}
#endif
