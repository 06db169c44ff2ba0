#pragma once

// The few functions of Core Foundation that the macOS platform uses, declared as Apple documents
// them (https://developer.apple.com/documentation/corefoundation) and realised in
// CoreFoundation.cpp.

#include <dispatch/dispatch.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef int SInt32;
typedef unsigned int UInt32;
typedef long CFIndex;
typedef double CFTimeInterval;
typedef UInt32 CFStringEncoding;

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFData* CFDataRef;
typedef struct __CFMessagePort* CFMessagePortRef;

extern const CFAllocatorRef kCFAllocatorDefault;
enum { kCFStringEncodingUTF8 = 0x08000100 };

void CFRelease(CFTypeRef object);

CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

enum { kCFMessagePortSuccess = 0 };

typedef struct {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFMessagePortContext;

typedef CFDataRef (*CFMessagePortCallBack)(CFMessagePortRef local, SInt32 messageID, CFDataRef data,
                                           void* info);

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                          CFMessagePortCallBack callback,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo);
CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name);
SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 messageID, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval receiveTimeout,
                                CFStringRef replyMode, CFDataRef* returnData);
void CFMessagePortSetDispatchQueue(CFMessagePortRef port, dispatch_queue_t queue);
void CFMessagePortInvalidate(CFMessagePortRef port);

#ifdef __cplusplus
}
#endif
